#include <Hosts/System/SqliteConnection.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
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

// As the file's own list of tables has it.
constexpr std::string_view table =
    "CREATE TABLE entries(key TEXT PRIMARY KEY NOT NULL, value BLOB NOT NULL) WITHOUT ROWID";

// What a file beside the store begins with: it tells that what lies there is ours, even when the
// store itself is too damaged to tell.
constexpr std::string_view mark =
    "Beside this file a TandrellCore application keeps its preferences.\n";

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

Failure foreign() { return {SQLITE_CANTOPEN, "it is the database of another program"}; }

bool meansFull(int reason) { return reason == ENOSPC || reason == EDQUOT || reason == EFBIG; }

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

/// What stands where the store should be and is no file, in words; nothing where there is none.
std::optional<std::string> obstacleAt(const fs::path& path) {
  std::error_code failed;
  const auto type = fs::status(path, failed).type();
  if (type == fs::file_type::directory) return "unable to open: it is a directory";
  if (type == fs::file_type::regular) return std::nullopt;
  const bool isThere = type != fs::file_type::not_found && type != fs::file_type::none;
  if (isThere) return "unable to open: it is not a file";
  if (!fs::is_symlink(fs::symlink_status(path, failed))) return std::nullopt;
  return "unable to open: it is a symbolic link that leads nowhere";
}

/// A file that exists is not opened here: to close it again would release the locks that another
/// handle of this process holds on it.
bool makePrivateFile(const fs::path& path, std::string_view content) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) return errno == EEXIST;
  const auto written = ::write(descriptor, content.data(), content.size());
  const bool isWhole = written == static_cast<ssize_t>(content.size());
  if (!isWhole) ::unlink(path.c_str());
  ::close(descriptor);
  synchroniseFolder(path.parent_path());
  return isWhole;
}

fs::path markOf(const fs::path& path) { return path.string() + ".mark"; }

bool isMarked(const fs::path& path) {
  std::ifstream file(markOf(path), std::ios::binary);
  std::string begin(mark.size(), '\0');
  return file.read(begin.data(), static_cast<std::streamsize>(begin.size())) && begin == mark;
}

/// SQLite gives its other files the mode of the first one.
std::optional<Failure> keepPrivate(const fs::path& path) {
  for (const auto suffix : suffixes) {
    const auto file = path.string() + std::string(suffix);
    struct stat status{};
    if (::stat(file.c_str(), &status) != 0 || (status.st_mode & 07777) == 0600) continue;
    if (::chmod(file.c_str(), 0600) != 0) return Failure{SQLITE_CANTOPEN, systemCause()};
  }
  return std::nullopt;
}

/// Runs a statement to its end and gives the text of its first column, or the failure.
std::optional<Failure> execute(sqlite3* connection, std::string_view sql, std::string* text) {
  errno = 0;
  const SqliteStatement statement = prepare(connection, sql);
  int code = statement ? sqlite3_step(statement.get()) : sqlite3_extended_errcode(connection);
  if (code == SQLITE_ROW && text) {
    const auto* column = sqlite3_column_text(statement.get(), 0);
    *text = column ? reinterpret_cast<const char*>(column) : "";
  }
  while (code == SQLITE_ROW) code = sqlite3_step(statement.get());
  if (code == SQLITE_DONE) return std::nullopt;
  return Failure{code, causeOf(connection)};
}

/// Whose database it is: "ours", "free" while it has nothing in it, or "foreign".
std::optional<Failure> findOwner(sqlite3* connection, std::string& owner) {
  const auto question = fmt::format(
      "SELECT CASE WHEN EXISTS(SELECT 1 FROM sqlite_schema WHERE sql='{}') THEN 'ours' "
      "WHEN EXISTS(SELECT 1 FROM sqlite_schema) "
      "OR (SELECT application_id FROM pragma_application_id) <> 0 "
      "OR (SELECT user_version FROM pragma_user_version) <> 0 THEN 'foreign' ELSE 'free' END",
      table);
  return execute(connection, question, &owner);
}

/// Looks without a lock and without making files beside it. What it does not see yet, or not
/// rightly while another process writes, is judged again once the store is open.
bool isForeign(const fs::path& path) {
  std::string address = "file:";
  for (const char c : path.string()) {
    c == '%' || c == '?' || c == '#' ? void(address += fmt::format("%{:02x}", c))
                                     : address.push_back(c);
  }
  sqlite3* opened = nullptr;
  const int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
  const int code = sqlite3_open_v2((address + "?immutable=1").c_str(), &opened, flags, nullptr);
  const SqliteConnection connection(opened, sqlite3_close_v2);
  std::string owner;
  return code == SQLITE_OK && !findOwner(opened, owner) && owner == "foreign";
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

/// Changes nothing before it knows the database for one of ours.
std::optional<Failure> setUp(sqlite3* connection, const fs::path& path, std::string& owner) {
  if (auto failure = findOwner(connection, owner)) return failure;
  if (owner == "foreign") return foreign();
  if (auto failure = keepPrivate(path)) return failure;
  if (auto failure = check(connection)) return failure;
  if (auto failure = useLog(connection)) return failure;
  if (auto failure = execute(connection, "PRAGMA synchronous=FULL", nullptr)) return failure;
  if (owner == "ours") return std::nullopt;
  // Where another opener was faster there is one by now.
  std::string create(table);
  return execute(connection, create.insert(create.find("entries"), "IF NOT EXISTS "), nullptr);
}

/// Whether closing the last connection folds the log into the file, as it normally does.
void foldLogOnClose(sqlite3* connection, bool fold) {
  sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, fold ? 0 : 1, nullptr);
}

std::optional<Failure> connect(const std::string& path, SqliteConnection& connection,
                               std::string& owner) {
  sqlite3* opened = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  const int code = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
  connection.reset(opened, sqlite3_close_v2);
  if (code != SQLITE_OK) return Failure{code, opened ? causeOf(opened) : "no memory"};
  sqlite3_extended_result_codes(opened, 1);
  sqlite3_busy_timeout(opened, static_cast<int>(busyTimeout.count()));
  foldLogOnClose(opened, false);  // a damaged file is kept as it was found
  auto failure = setUp(opened, path, owner);
  // SQLite does not wait by itself where two openers switch a new file to the log at once.
  const auto deadline = std::chrono::steady_clock::now() + busyTimeout;
  while (failure && failure->isBusy() && std::chrono::steady_clock::now() < deadline) {
    sqlite3_sleep(busyPauseMs);
    failure = setUp(opened, path, owner);
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

std::string causeOf(sqlite3* connection) {
  const int last = errno;  // SQLite does not keep the one of every call
  const int primary = sqlite3_errcode(connection) & 0xFF;
  const std::string cause = sqlite3_errmsg(connection);
  if (primary != SQLITE_IOERR && primary != SQLITE_CANTOPEN) return cause;
  const int reason = sqlite3_system_errno(connection);
  if (meansFull(reason) || meansFull(last)) return sqlite3_errstr(SQLITE_FULL);
  if (reason == 0) return cause;
  return fmt::format("{}: {}", cause, std::generic_category().message(reason));
}

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
  // Absolute, because SQLite gives names like ":memory:" a meaning of their own; through links, so
  // that what lies beside the store is found beside it.
  const fs::path path = fs::weakly_canonical(fs::absolute(given, failed), failed);
  if (given.empty()) return Opened::error(cannotOpen(given, "not a path"));
  if (failed) return Opened::error(cannotOpen(given, failed.message()));
  if (const auto obstacle = obstacleAt(path)) return Opened::error(cannotOpen(path, *obstacle));
  if (!makeFolder(path.parent_path()) || !makePrivateFile(path, "")) {
    return Opened::error(cannotOpen(path, systemCause()));
  }
  if (isForeign(path)) return Opened::error(cannotOpen(path, foreign().cause));
  SqliteConnection connection;
  std::string owner;
  if (const auto failure = connect(path, connection, owner)) {
    connection.reset();
    const bool isOurs = owner == "ours" || isMarked(path);
    if (failure->isDamage() && isOurs) return Opened::error(moveAside(path, *failure));
    return Opened::error(cannotOpen(path, failure->cause));
  }
  makePrivateFile(markOf(path), mark);  // without it the store works as well
  return Opened::success(std::move(connection));
}

}  // namespace tandrell
