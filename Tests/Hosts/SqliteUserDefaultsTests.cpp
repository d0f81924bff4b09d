#include <Hosts/System/SqliteUserDefaults.h>
#include <Tests/Hosts/TemporaryFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {
std::atomic<int> timesSynchronised = 0;
}  // namespace

/// In the system's place, to see that SQLite asks for it.
extern "C" int fdatasync(int file) {
  ++timesSynchronised;
  return static_cast<int>(::syscall(SYS_fdatasync, file));
}

namespace tandrell {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class SqliteUserDefaultsTest : public ::testing::Test {
 protected:
  std::shared_ptr<SqliteUserDefaults> open() {
    const auto opened = SqliteUserDefaults::open(path_);
    if (!opened.isSuccess()) fatalError(opened.error().description());
    opened.value()->setErrorHandler([this](const Error& error) { errors_.push_back(error); });
    return opened.value();
  }
  /// Overwrites part of a file; at 0 the whole file.
  static void scribble(const fs::path& path, std::streamoff place, const std::string& bytes) {
    const auto mode = place == 0 ? std::ios::trunc | std::ios::out : std::ios::in | std::ios::out;
    std::fstream file(path, mode | std::ios::binary);
    file.seekp(place);
    file << bytes;
  }
  void runSql(const char* sql) { runSql(path_, sql); }
  static void runSql(const std::string& path, const char* sql) {
    sqlite3* connection = nullptr;
    sqlite3_open(path.c_str(), &connection);
    EXPECT_EQ(sqlite3_exec(connection, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(connection);
  }
  std::string path(const std::string& suffix) const { return path_ + suffix; }

  static PropertyList nestedTooDeep() {
    PropertyList list{true};
    for (std::size_t i = 0; i < PropertyList::maximumDepth; ++i) {
      list = {PropertyList::Array{std::move(list)}};
    }
    return list;
  }

  const TemporaryFolder folder_;
  const std::string path_ = folder_ / "state/deep/defaults.db";
  std::vector<Error> errors_;
};

TEST_F(SqliteUserDefaultsTest, OnlyTheOwnerMayReadIt) {
  const auto previous = ::umask(0);
  const auto store = open();
  store->setObject({true}, "key");
  ::umask(previous);
  const auto mode = [](const fs::path& place) {
    return static_cast<unsigned>(fs::status(place).permissions());
  };
  for (const auto* suffix : {"", "-wal", "-shm"}) EXPECT_EQ(mode(path(suffix)), 0600u) << suffix;
  EXPECT_EQ(mode(folder_ / "state"), 0700u);
  EXPECT_EQ(mode(folder_ / "state/deep"), 0700u);
}

TEST_F(SqliteUserDefaultsTest, ChangeIsOnTheDiskWhenItsCallReturns) {
  const auto store = open();
  const int before = timesSynchronised;
  store->setObject({std::string("sending")}, "parcel");
  EXPECT_GT(timesSynchronised, before);
  // What a power cut leaves: the files as they are, with nobody to close them.
  const TemporaryFolder later;
  for (const auto* suffix : {"", "-wal"})
    fs::copy(path(suffix), later / ("copy.db" + std::string(suffix)));
  const auto revived = SqliteUserDefaults::open(later / "copy.db");
  EXPECT_EQ(revived.value()->object("parcel"), PropertyList{std::string("sending")});
}

TEST_F(SqliteUserDefaultsTest, DamagedFileIsKeptAsideAndTheNextStoreIsEmpty) {
  for (const std::string number : {"1", "2"}) {
    open()->setObject({Data(20'000, 7)}, "key");
    const bool isHeader = number == "1";
    scribble(path_, isHeader ? 0 : 4096, std::string(8192, '!'));
    scribble(path("-wal"), 0, "log " + number);
    const auto size = fs::file_size(path_);

    const auto opened = SqliteUserDefaults::open(path_);
    ASSERT_FALSE(opened.isSuccess());
    const Error& error = opened.error();
    EXPECT_EQ(error, Error(UserDefaultsError::damaged));
    EXPECT_THAT(error.text, HasSubstr("path=" + path_));
    EXPECT_THAT(error.text, HasSubstr("kept as " + path(".damaged-" + number)));
    EXPECT_EQ(fs::file_size(path(".damaged-" + number)), size);
    EXPECT_EQ(fs::file_size(path(".damaged-" + number + "-wal")), 5u);
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_FALSE(open()->object("key"));
  }
}

/// Everything in a folder: names, modes, contents.
std::vector<std::string> listing(const fs::path& folder) {
  std::vector<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::ostringstream line;
    line << entry.path() << ' ' << static_cast<int>(fs::status(entry.path()).permissions()) << ' ';
    if (entry.is_regular_file()) line << std::ifstream(entry.path()).rdbuf();
    lines.push_back(line.str());
  }
  std::ranges::sort(lines);
  return lines;
}

TEST_F(SqliteUserDefaultsTest, WhatIsNotAStoreIsLeftAsItIs) {
  fs::create_directory(folder_ / "directory");
  scribble(folder_ / "text", 0, "notes");
  runSql(folder_ / "database", "CREATE TABLE entries(key TEXT, value BLOB)");
  runSql(folder_ / "log", "PRAGMA journal_mode=WAL; CREATE TABLE other(a)");
  runSql(folder_ / "marked", "PRAGMA application_id=7");
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0644), 0);
  for (const auto& entry : fs::directory_iterator(folder_ / "")) {
    fs::permissions(entry.path(), fs::perms{0755});
    fs::create_symlink(entry.path(), entry.path().string() + "-link");
  }
  fs::create_symlink(folder_ / "nowhere", folder_ / "nowhere-link");
  const auto before = listing(folder_ / "");
  for (const auto& [place, cause] : {std::pair("directory", "unable to open: it is a directory"),
                                     {"text", "file is not a database"},
                                     {"database", "it is the database of another program"},
                                     {"log", "it is the database of another program"},
                                     {"marked", "it is the database of another program"},
                                     {"pipe", "unable to open: it is not a file"},
                                     {"text/below", "Not a directory"},
                                     {"nowhere-link", "symbolic link that leads nowhere"}}) {
    for (const auto* suffix : {"", "-link"}) {
      const std::string path = folder_ / (place + std::string(suffix));
      if (!fs::exists(fs::symlink_status(path)) && place != std::string_view("text/below"))
        continue;
      const auto opened = SqliteUserDefaults::open(path);
      ASSERT_FALSE(opened.isSuccess()) << path;
      EXPECT_EQ(opened.error(), Error(UserDefaultsError::cannotOpen));
      EXPECT_THAT(opened.error().text, HasSubstr(cause)) << path;
    }
  }
  EXPECT_EQ(listing(folder_ / ""), before);
  EXPECT_FALSE(SqliteUserDefaults::open("").isSuccess());

  open()->setObject({true}, "key");
  fs::create_symlink(path_, folder_ / "ours-link");
  EXPECT_EQ(SqliteUserDefaults::open(folder_ / "ours-link").value()->object("key"),
            PropertyList{true});
}

/// While it lives no file of the process may grow, as on a full disk.
class FullDisk {
 public:
  FullDisk() {
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit none{0, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &none);
  }
  ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(SqliteUserDefaultsTest, TellsOfAFullDiskUntilWhatWasLostIsStored) {
  auto store = open();
  std::vector<bool> observed;
  auto problems = store->observableProblem().observe(
      [&](const std::optional<Error>& problem) { observed.push_back(problem.has_value()); });
  {
    const FullDisk disk;
    store->setObject({Data(9'000, 1)}, "a");
    store->setObject({true}, "b");
    ASSERT_TRUE(store->problem());
    EXPECT_EQ(*store->problem(), Error(UserDefaultsError::changeFailed));
    for (const auto& error : errors_) EXPECT_THAT(error.text, HasSubstr("disk is full"));
  }
  store->setObject({true}, "a");
  EXPECT_TRUE(store->problem()) << "b is still older than what was set";
  store->setObject({true}, "b");
  EXPECT_FALSE(store->problem());
  store->setObject(PropertyList{PropertyList::Array{nestedTooDeep()}}, "b");
  EXPECT_EQ(store->object("b"), PropertyList{true});
  EXPECT_EQ(observed, (std::vector{false, true, false, true}));
  EXPECT_EQ(errors_.size(), 3u);
  problems.dispose();
  store.reset();
  const FullDisk disk;
  EXPECT_THAT(SqliteUserDefaults::open(path_).error().text, HasSubstr("disk is full"));
}

TEST_F(SqliteUserDefaultsTest, AClaimNamesItsProcessAndEndsWithIt) {
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const pid_t other = ::fork();
  if (other == 0) {
    const auto claim = open()->claim("DeviceUtil");
    if (claim.isSuccess() && ::write(pipe[1], "!", 1) == 1) ::pause();
    ::_exit(1);
  }
  char said = 0;
  ASSERT_EQ(::read(pipe[0], &said, 1), 1);
  const auto refused = open()->claim("DeviceUtil");
  ASSERT_FALSE(refused.isSuccess());
  EXPECT_EQ(refused.error(), Error(ClaimError::held));
  EXPECT_THAT(refused.error().text, HasSubstr("DeviceUtil is held by process " +
                                              std::to_string(other) + " (hosts-tests)"));
  open()->setObject({true}, "key");
  EXPECT_TRUE(errors_.empty()) << "the entries are open to all";
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
  EXPECT_TRUE(open()->claim("DeviceUtil").isSuccess());

  scribble(path(".Other.lock"), 0, "somebody's");
  EXPECT_EQ(open()->claim("Other").error(), Error(ClaimError::cannotClaim));
  EXPECT_EQ(fs::file_size(path(".Other.lock")), 10u);
}

TEST_F(SqliteUserDefaultsTest, FailuresAfterOpeningGoToTheHandler) {
  const auto store = open();
  store->setObject({true}, "key");
  runSql("INSERT INTO entries VALUES('odd', X'9BFFFFFFFFFFFFFFFE'), ('none', X'')");
  EXPECT_FALSE(store->object("odd"));
  EXPECT_FALSE(store->object("none"));
  ASSERT_EQ(errors_.size(), 2u);
  EXPECT_EQ(errors_[0], Error(UserDefaultsError::undecodable));
  EXPECT_THAT(errors_[0].text, HasSubstr("path=" + path_ + "; key=odd;"));

  runSql(
      "CREATE TRIGGER full BEFORE INSERT ON entries BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  store->setObject({false}, "key");
  ASSERT_EQ(errors_.size(), 3u);
  EXPECT_EQ(errors_[2], Error(UserDefaultsError::changeFailed));
  EXPECT_THAT(errors_[2].text, HasSubstr("key=key; error=disk full"));
  EXPECT_EQ(store->object("key"), PropertyList{true});
}

TEST_F(SqliteUserDefaultsTest, HandlesOnOneFileShareIt) {
  // Every thread has a handle of its own, as processes do; the first ones make the file together.
  std::vector<std::thread> writers;
  std::vector<std::string> failures(4);
  for (int writer = 0; writer < 4; ++writer) {
    writers.emplace_back([&, writer] {
      const auto store = SqliteUserDefaults::open(path_).value();
      store->setErrorHandler([&, writer](const Error& error) { failures[writer] = error.text; });
      for (std::int64_t i = 0; i < 25; ++i) {
        store->setObject({i}, std::to_string(writer));
        store->setObject({i}, "shared");
      }
    });
  }
  for (auto& writer : writers) writer.join();
  for (const auto& failure : failures) EXPECT_EQ(failure, "");
  const auto first = open();
  const auto second = open();
  for (int writer = 0; writer < 4; ++writer) {
    EXPECT_EQ(first->object(std::to_string(writer)), PropertyList{std::int64_t{24}});
  }
  second->setObject({true}, "seen");
  EXPECT_EQ(first->object("seen"), PropertyList{true});
}

}  // namespace
}  // namespace tandrell
