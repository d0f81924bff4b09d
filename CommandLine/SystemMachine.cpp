#include <CommandLine/ConsoleLog.h>
#include <CommandLine/SystemMachine.h>
#include <Hosts/System/SqliteUserDefaults.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

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

/// At once and whole, so that a reader behind a pipe sees each line as it happens.
void write(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

}  // namespace

Result<std::shared_ptr<UserDefaults>> SystemMachine::openStore(const std::string& directory) {
  using Outcome = Result<std::shared_ptr<UserDefaults>>;
  const auto store = SqliteUserDefaults::open((directory.empty() ? usualDirectory() : directory) +
                                              "/preferences.sqlite");
  return store.isSuccess() ? Outcome::success(store.value()) : Outcome::error(store.error());
}

void SystemMachine::startLog(const std::string& level) {
  LogFacadeConfig::registerLogger([level] { return std::make_shared<ConsoleLog>(level); });
}

void SystemMachine::onInterrupt(Work handler) {
  interrupt_.reset();
  if (handler) interrupt_.emplace(dispatcher_->mainQueue(), std::move(handler));
}

void SystemMachine::writeOut(std::string_view text) { write(stdout, text); }

void SystemMachine::writeError(std::string_view text) { write(stderr, text); }

bool SystemMachine::isTerminal() const { return isatty(STDOUT_FILENO) == 1; }

}  // namespace tandrell
