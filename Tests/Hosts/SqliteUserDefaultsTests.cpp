#include <Hosts/System/SqliteUserDefaults.h>
#include <Tests/Hosts/TemporaryFolder.h>

#include <fmt/format.h>
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
#include <set>
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

/// The names of everything in a folder, with modes and sizes.
std::set<std::string> listing(const fs::path& folder) {
  std::set<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    struct stat status{};
    ::lstat(entry.path().c_str(), &status);
    lines.insert(fmt::format("{} {:o} {}", entry.path().c_str(), status.st_mode, status.st_size));
  }
  return lines;
}

TEST_F(SqliteUserDefaultsTest, WhatIsNotAStoreIsLeftAsItIs) {
  fs::create_directory(folder_ / "directory");
  scribble(folder_ / "text", 0, "notes");
  runSql(folder_ / "database", "CREATE TABLE entries(key TEXT, value BLOB)");
  runSql(folder_ / "log", "PRAGMA journal_mode=WAL; PRAGMA application_id=7");
  ::mkfifo((folder_ / "pipe").c_str(), 0644);
  for (const std::string target : {"directory", "text", "nowhere"}) {
    fs::create_symlink(folder_ / target, folder_ / ("to-" + target));
  }
  const auto before = listing(folder_ / "");
  for (const auto& [place, cause] : {std::pair("directory", "unable to open: it is a directory"),
                                     {"to-directory", "unable to open: it is a directory"},
                                     {"text", "file is not a database"},
                                     {"to-text", "file is not a database"},
                                     {"text/below", "Not a directory"},
                                     {"database", "it is the database of another program"},
                                     {"log", "it is the database of another program"},
                                     {"pipe", "unable to open: it is not a file"},
                                     {"to-nowhere", "it is a symbolic link that leads nowhere"}}) {
    const auto opened = SqliteUserDefaults::open(folder_ / place);
    ASSERT_FALSE(opened.isSuccess()) << place;
    EXPECT_EQ(opened.error(), Error(UserDefaultsError::cannotOpen));
    EXPECT_THAT(opened.error().text, HasSubstr(cause));
  }
  EXPECT_FALSE(SqliteUserDefaults::open("").isSuccess());
  EXPECT_EQ(listing(folder_ / ""), before);
}

/// How far files of the process may grow; 0 is a full disk.
void limitFiles(rlim_t size) {
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{size, RLIM_INFINITY};
  ::setrlimit(RLIMIT_FSIZE, &limit);
}

TEST_F(SqliteUserDefaultsTest, TellsOfAFullDiskUntilWhatWasLostIsStored) {
  auto store = open();
  std::vector<bool> observed;
  auto problems = store->observableProblem().observe(
      [&](const auto& problem) { observed.push_back(problem.has_value()); });
  limitFiles(0);
  store->setObject({true}, "a");
  store->setObject({true}, "b");
  limitFiles(RLIM_INFINITY);
  store->setObject({true}, "a");
  EXPECT_EQ(store->problem(), Error(UserDefaultsError::changeFailed)) << "b is as it was";
  store->setObject({true}, "b");
  EXPECT_EQ(observed, (std::vector{false, true, false}));
  problems.dispose();
  store.reset();
  limitFiles(0);
  errors_.push_back(SqliteUserDefaults::open(path_).error());
  limitFiles(RLIM_INFINITY);
  EXPECT_EQ(errors_.size(), 3u);
  for (const auto& e : errors_) EXPECT_THAT(e.text, HasSubstr("error=database or disk is full"));
}

TEST_F(SqliteUserDefaultsTest, AClaimNamesItsProcessAndEndsWithIt) {
  int pipe[2] = {};
  ASSERT_EQ(::pipe(pipe), 0);
  const pid_t other = ::fork();
  if (other == 0) {
    const auto claim = open()->claim("A");
    if (::write(pipe[1], "!", 1) == 1) ::pause();
  }
  char said = 0;
  ASSERT_EQ(::read(pipe[0], &said, 1), 1);
  const auto refused = open()->claim("A");
  open()->setObject({true}, "key");
  EXPECT_TRUE(errors_.empty()) << "the entries are open to all";
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
  EXPECT_THAT(refused.error().text, HasSubstr(fmt::format("held by process {} (hosts-", other)));
  EXPECT_TRUE(open()->claim("A").isSuccess());
  scribble(path(".B.lock"), 0, "somebody's");
  EXPECT_EQ(open()->claim("B").error(), Error(ClaimError::cannotClaim));
  EXPECT_EQ(fs::file_size(path(".B.lock")), 10u);
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
