#include <Hosts/System/SqliteUserDefaults.h>
#include <Tests/Hosts/TemporaryFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

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
  void runSql(const char* sql) {
    sqlite3* connection = nullptr;
    sqlite3_open(path_.c_str(), &connection);
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
  store->setObject({std::string("sending")}, "parcel");
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

TEST_F(SqliteUserDefaultsTest, WhatCannotBeOpenedSaysWhy) {
  fs::create_directories(path_);
  const auto folder = SqliteUserDefaults::open(path_);
  ASSERT_FALSE(folder.isSuccess());
  EXPECT_EQ(folder.error(), Error(UserDefaultsError::cannotOpen));
  EXPECT_THAT(folder.error().text, HasSubstr("path=" + path_ + "; error=unable to open"));

  const std::string below = folder_ / "file/defaults.db";
  scribble(folder_ / "file", 0, "in the way");
  EXPECT_THAT(SqliteUserDefaults::open(below).error().text,
              HasSubstr("path=" + below + "; error=Not a directory"));
  EXPECT_FALSE(SqliteUserDefaults::open("").isSuccess());
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
