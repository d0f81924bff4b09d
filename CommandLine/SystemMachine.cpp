#include <CommandLine/ConsoleLog.h>
#include <CommandLine/SystemMachine.h>
#include <Hosts/System/SqliteUserDefaults.h>

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace tandrell {
namespace {

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string usualDirectory() {
  const auto data = variable("XDG_DATA_HOME");
  return (data.empty() ? variable("HOME") + "/.local/share" : data) + "/tandrell";
}

/// At once and whole, so that a reader behind a pipe sees each line as it happens. Returns whether
/// all of it was written; if not, `errno` says why.
bool write(std::FILE* stream, std::string_view text) {
  const bool taken = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
  return std::fflush(stream) == 0 && taken;
}

}  // namespace

Result<std::shared_ptr<UserDefaults>> SystemMachine::openStore(const std::string& directory) {
  using Outcome = Result<std::shared_ptr<UserDefaults>>;
  const auto store = SqliteUserDefaults::open((directory.empty() ? usualDirectory() : directory) +
                                              "/preferences.sqlite");
  return store.isSuccess() ? Outcome::success(store.value()) : Outcome::error(store.error());
}

void SystemMachine::startLog(const std::string& level, bool withContent) {
  const auto content = withContent ? ConsoleLog::Content::shown : ConsoleLog::Content::hidden;
  LogFacadeConfig::registerLogger(
      [level, content] { return std::make_shared<ConsoleLog>(level, content); });
}

void SystemMachine::onInterrupt(Work handler) {
  interrupt_.reset();
  if (handler) interrupt_.emplace(dispatcher_->mainQueue(), std::move(handler));
}

void SystemMachine::writeOut(std::string_view text) {
  if (write(stdout, text) || outputState_ != OutputState::whole) return;
  const int reason = errno;
  outputState_ = reason == EPIPE ? OutputState::readerGone : OutputState::failed;
  if (reason == EPIPE) return;
  writeError(fmt::format("tandrell: cannot write to the standard output: {}\n",
                         std::generic_category().message(reason)));
}

void SystemMachine::writeError(std::string_view text) { write(stderr, text); }

bool SystemMachine::isTerminal() const { return isatty(STDOUT_FILENO) == 1; }

}  // namespace tandrell
