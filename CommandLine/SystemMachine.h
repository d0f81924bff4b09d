#pragma once

#include <CommandLine/Machine.h>
#include <Hosts/System/Files.h>
#include <Hosts/System/Interrupt.h>
#include <Hosts/System/SystemEnvironment.h>

#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// The computer that the program really runs on. The store is the file "preferences.sqlite"; its
/// usual place is "tandrell" in the user's data directory.
class SystemMachine final : public Machine {
 public:
  /// Nothing of it runs on while the process ends.
  ~SystemMachine() override { dispatcher_->end(); }

  Environment environment() const override { return environment_; }
  Result<std::shared_ptr<UserDefaults>> openStore(const std::string& directory) override;
  void startLog(const std::string& level, bool withContent) override;
  void run() override { dispatcher_->runMainQueue(); }
  void stop() override { dispatcher_->stopMainQueue(); }
  void onInterrupt(Work handler) override;
  Result<std::string> readFile(const std::string& path) override { return readWholeFile(path); }
  Result<FileReader> openFile(const std::string& path) override { return readPieces(path); }
  OutputState outputState() const override { return outputState_; }
  void writeOut(std::string_view text) override;
  void writeError(std::string_view text) override;
  bool isTerminal() const override;

 private:
  const std::shared_ptr<SystemDispatcher> dispatcher_ = std::make_shared<SystemDispatcher>();
  const Environment environment_ = systemEnvironment(dispatcher_, nullptr, nullptr);
  std::optional<Interrupt> interrupt_;
  OutputState outputState_ = OutputState::whole;
};

}  // namespace tandrell
