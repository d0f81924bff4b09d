#include <Hosts/System/SqliteConnection.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

namespace tandrell {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds busyTimeout(5'000);
constexpr int busyPauseMs = 20;

constexpr std::string_view suffixes[] = {"-wal", "-shm", ""};

/// A failed step on the way to an open store.
struct Failure {
  int code;  // SQLite's
  std::string cause;

  bool isDamage() const {
    const int primary = code & 0xFF;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
  }
  bool isBusy() const { return (code & 0xFF) == SQLITE_BUSY; }
};

std::string systemCause() { return std::generic_category().message(errno); }

Error cannotOpen(const std::string& path, std::string_view cause) {
  return makeError(UserDefaultsError::cannotOpen,
                   fmt::format("cannot open user defaults; path={}; error={}", path, cause));
}

/// Makes the entry of a new file durable. Where folders cannot be synchronised there is no need.
void synchroniseFolder(const fs::path& folder) {
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  ::fsync(descriptor);
  ::close(descriptor);
}

bool makeFolder(const fs::path& folder) {
  std::error_code ignored;
  if (folder.empty() || fs::is_directory(folder, ignored)) return true;
  if (!makeFolder(folder.parent_path())) return false;
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
  synchroniseFolder(folder.parent_path());
  return true;
}

/// SQLite gives its other files the mode of this one. A file that exists is not opened here: to
/// close it again would release the locks that another handle of this process holds on it.
bool makePrivateFile(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) return errno == EEXIST && ::chmod(path.c_str(), 0600) == 0;
  ::close(descriptor);
  synchroniseFolder(path.parent_path());
  return true;
}

/// Runs a statement to its end and gives the text of its first column, or the failure.
std::optional<Failure> execute(sqlite3* connection, std::string_view sql, std::string* text) {
  const SqliteStatement statement = prepare(connection, sql);
  int code = statement ? sqlite3_step(statement.get()) : sqlite3_extended_errcode(connection);
  if (code == SQLITE_ROW && text) {
    const auto* column = sqlite3_column_text(statement.get(), 0);
    *text = column ? reinterpret_cast<const char*>(column) : "";
  }
  while (code == SQLITE_ROW) code = sqlite3_step(statement.get());
  if (code == SQLITE_DONE) return std::nullopt;
  return Failure{code, sqlite3_errmsg(connection)};
}

std::optional<Failure> check(sqlite3* connection) {
  std::string verdict;
  if (auto failure = execute(connection, "PRAGMA quick_check(1)", &verdict)) return failure;
  if (verdict != "ok") return Failure{SQLITE_CORRUPT, verdict};
  return std::nullopt;
}

std::optional<Failure> useLog(sqlite3* connection) {
  std::string mode;
  if (auto failure = execute(connection, "PRAGMA journal_mode=WAL", &mode)) return failure;
  if (mode != "wal") return Failure{SQLITE_CANTOPEN, "no write-ahead log here; mode=" + mode};
  return std::nullopt;
}

std::optional<Failure> setUp(sqlite3* connection) {
  if (auto failure = check(connection)) return failure;
  if (auto failure = useLog(connection)) return failure;
  for (const std::string_view sql :
       {"PRAGMA synchronous=FULL",
        "CREATE TABLE IF NOT EXISTS entries(key TEXT PRIMARY KEY NOT NULL, value BLOB NOT NULL) "
        "WITHOUT ROWID"}) {
    if (auto failure = execute(connection, sql, nullptr)) return failure;
  }
  return std::nullopt;
}

/// Whether closing the last connection folds the log into the file, as it normally does.
void foldLogOnClose(sqlite3* connection, bool fold) {
  sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, fold ? 0 : 1, nullptr);
}

std::optional<Failure> connect(const std::string& path, SqliteConnection& connection) {
  sqlite3* opened = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  const int code = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
  connection.reset(opened, sqlite3_close_v2);
  if (code != SQLITE_OK) return Failure{code, opened ? sqlite3_errmsg(opened) : "no memory"};
  sqlite3_extended_result_codes(opened, 1);
  sqlite3_busy_timeout(opened, static_cast<int>(busyTimeout.count()));
  foldLogOnClose(opened, false);  // a damaged file is kept as it was found
  auto failure = setUp(opened);
  // SQLite does not wait by itself where two openers switch a new file to the log at once.
  const auto deadline = std::chrono::steady_clock::now() + busyTimeout;
  while (failure && failure->isBusy() && std::chrono::steady_clock::now() < deadline) {
    sqlite3_sleep(busyPauseMs);
    failure = setUp(opened);
  }
  foldLogOnClose(opened, !failure);
  return failure;
}

std::string freePlaceAside(const std::string& path) {
  const auto isTaken = [](const std::string& place) {
    std::error_code ignored;
    for (const auto suffix : suffixes) {
      if (fs::symlink_status(place + std::string(suffix), ignored).type() !=
          fs::file_type::not_found) {
        return true;
      }
    }
    return false;
  };
  int number = 1;
  while (isTaken(fmt::format("{}.damaged-{}", path, number))) ++number;
  return fmt::format("{}.damaged-{}", path, number);
}

/// The file itself goes last: a log left behind alone would be read into the next file.
Error moveAside(const std::string& path, const Failure& failure) {
  const std::string place = freePlaceAside(path);
  std::string outcome = "kept as " + place;
  for (const auto suffix : suffixes) {
    const std::string from = path + std::string(suffix);
    if (std::rename(from.c_str(), (place + std::string(suffix)).c_str()) == 0) continue;
    if (errno == ENOENT) continue;
    outcome = fmt::format("could not be moved to {}: {}", place, systemCause());
    break;
  }
  synchroniseFolder(fs::path(path).parent_path());
  return makeError(UserDefaultsError::damaged,
                   fmt::format("user defaults are damaged; path={}; file={}; error={}", path,
                               outcome, failure.cause));
}

}  // namespace

Error makeError(UserDefaultsError kind, std::string text) {
  return Error(std::string(errorDomain(kind)), static_cast<int>(kind), std::move(text));
}

SqliteStatement prepare(sqlite3* connection, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(connection, sql.data(), static_cast<int>(sql.size()),
                     SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return SqliteStatement(statement);
}

Result<SqliteConnection> openConnection(const std::string& given) {
  using Opened = Result<SqliteConnection>;
  // One at a time in this process, so that none closes or moves a file under another's hands.
  static std::mutex opening;
  const std::lock_guard lock(opening);

  std::error_code failed;
  // Absolute, because SQLite gives names like ":memory:" a meaning of their own.
  const fs::path path = fs::absolute(given, failed);
  if (given.empty() || failed) return Opened::error(cannotOpen(given, "not a path"));
  if (!makeFolder(path.parent_path()) || !makePrivateFile(path)) {
    return Opened::error(cannotOpen(path, systemCause()));
  }
  SqliteConnection connection;
  if (const auto failure = connect(path, connection)) {
    connection.reset();
    return Opened::error(failure->isDamage() ? moveAside(path, *failure)
                                             : cannotOpen(path, failure->cause));
  }
  return Opened::success(std::move(connection));
}

}  // namespace tandrell
