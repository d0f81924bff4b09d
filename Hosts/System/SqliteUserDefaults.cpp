#include <Hosts/System/PropertyListCoding.h>
#include <Hosts/System/SqliteConnection.h>
#include <Hosts/System/SqliteUserDefaults.h>
#include <Hosts/System/StoreClaim.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <utility>

namespace tandrell {
namespace {

/// One run of a prepared statement; leaves it ready for the next.
class Run {
 public:
  explicit Run(const SqliteStatement& statement) : statement_(statement.get()) {}
  ~Run() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void bindKey(std::string_view key) {
    // A missing address would bind NULL instead of an empty text.
    const char* const address = key.data() ? key.data() : "";
    sqlite3_bind_text64(statement_, 1, address, key.size(), SQLITE_STATIC, SQLITE_UTF8);
  }
  void bindValue(DataView value) {
    sqlite3_bind_blob64(statement_, 2, value.data(), value.size(), SQLITE_STATIC);
  }
  int step() {
    errno = 0;
    return sqlite3_step(statement_);
  }
  DataView column() const {
    const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, 0));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, 0))};
  }

 private:
  sqlite3_stmt* const statement_;
};

void printError(const Error& error) { std::fprintf(stderr, "%s\n", error.description().c_str()); }

}  // namespace

std::string_view errorText(UserDefaultsError error) {
  switch (error) {
    case UserDefaultsError::cannotOpen:
      return "cannotOpen";
    case UserDefaultsError::damaged:
      return "damaged";
    case UserDefaultsError::changeFailed:
      return "changeFailed";
    case UserDefaultsError::readFailed:
      return "readFailed";
    case UserDefaultsError::undecodable:
      return "undecodable";
  }
  return "unknown";
}

struct SqliteUserDefaults::Store {
  Store(std::string openedPath, SqliteConnection opened)
      : path(std::move(openedPath)),
        connection(std::move(opened)),
        select(prepare(connection.get(), "SELECT value FROM entries WHERE key=?1")),
        replace(prepare(connection.get(), "REPLACE INTO entries(key, value) VALUES(?1, ?2)")),
        remove(prepare(connection.get(), "DELETE FROM entries WHERE key=?1")) {}

  bool isReady() const { return select && replace && remove; }
  std::string cause() const { return causeOf(connection.get()); }

  Error failure(UserDefaultsError kind, std::string_view key, std::string_view cause) const {
    return makeError(
        kind, fmt::format("{}; path={}; key={}; error={}", errorText(kind), path, key, cause));
  }

  /// One statement is one transaction.
  std::optional<Error> change(const SqliteStatement& statement, std::string_view key,
                              DataView value) {
    std::optional<Error> failed;
    {
      const std::lock_guard lock(mutex);
      Run run(statement);
      run.bindKey(key);
      if (!value.empty()) run.bindValue(value);
      if (run.step() != SQLITE_DONE) {
        failed = failure(UserDefaultsError::changeFailed, key, cause());
      }
      state.didChange(key, failed);
    }
    state.publish();
    return failed;
  }

  Error refuse(std::string_view key, std::string_view cause) {
    const Error refused = failure(UserDefaultsError::changeFailed, key, cause);
    state.didChange(key, refused);
    state.publish();
    return refused;
  }

  std::optional<Error> read(std::string_view key, std::optional<PropertyList>& entry) {
    const std::lock_guard lock(mutex);
    Run run(select);
    run.bindKey(key);
    const int code = run.step();
    if (code == SQLITE_DONE) return std::nullopt;
    if (code != SQLITE_ROW) return failure(UserDefaultsError::readFailed, key, cause());
    entry = decode(run.column());
    if (entry) return std::nullopt;
    return failure(UserDefaultsError::undecodable, key, "the bytes are not a property list");
  }

  const std::string path;
  std::mutex mutex;
  const SqliteConnection connection;
  const std::string file = sqlite3_db_filename(connection.get(), "main");  // through links
  const SqliteStatement select;
  const SqliteStatement replace;
  const SqliteStatement remove;

  RecordingState state;

  std::mutex handlerMutex;
  ErrorHandler handler = printError;
};

Result<std::shared_ptr<SqliteUserDefaults>> SqliteUserDefaults::open(const std::string& path) {
  using Opened = Result<std::shared_ptr<SqliteUserDefaults>>;
  auto connection = openConnection(path);
  if (!connection.isSuccess()) return Opened::error(connection.error());
  auto store = std::make_unique<Store>(path, connection.value());
  if (!store->isReady()) {
    return Opened::error(makeError(
        UserDefaultsError::cannotOpen,
        fmt::format("cannot open user defaults; path={}; error={}", path, store->cause())));
  }
  return Opened::success(
      std::shared_ptr<SqliteUserDefaults>(new SqliteUserDefaults(std::move(store))));
}

SqliteUserDefaults::SqliteUserDefaults(std::unique_ptr<Store> store) : store_(std::move(store)) {}

SqliteUserDefaults::~SqliteUserDefaults() = default;

void SqliteUserDefaults::setObject(const PropertyList& object, std::string_view key) {
  if (object.isDeeperThan(PropertyList::maximumDepth)) {
    return report(store_->refuse(key, "nested too deep"));
  }
  report(store_->change(store_->replace, key, encode(object)));
}

std::optional<PropertyList> SqliteUserDefaults::object(std::string_view key) const {
  std::optional<PropertyList> entry;
  report(store_->read(key, entry));
  return entry;
}

void SqliteUserDefaults::removeObject(std::string_view key) {
  report(store_->change(store_->remove, key, {}));
}

std::optional<Error> SqliteUserDefaults::problem() const { return store_->state.problem(); }

ObservableValue<std::optional<Error>>& SqliteUserDefaults::observableProblem() {
  return store_->state.observable();
}

Result<Claim> SqliteUserDefaults::claim(std::string_view name) {
  return claimBeside(store_->file, name);
}

void SqliteUserDefaults::setErrorHandler(ErrorHandler handler) {
  const std::lock_guard lock(store_->handlerMutex);
  store_->handler.swap(handler);
}

void SqliteUserDefaults::report(const std::optional<Error>& error) const {
  if (!error) return;
  ErrorHandler handler;
  {
    const std::lock_guard lock(store_->handlerMutex);
    handler = store_->handler;
  }
  if (handler) handler(*error);
}

}  // namespace tandrell
