#pragma once

#include <CommandLine/Program.h>
#include <CommandLine/SimLink.h>
#include <Simulator/MemoryUserDefaults.h>
#include <Simulator/SeededRandom.h>
#include <Simulator/VirtualTime.h>

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tandrell {

/// A machine whose time jumps, with a simulated communicator beside it: runs the program, from its
/// arguments to its exit status, as often as a test likes, on one store.
class VirtualMachine final : public Machine {
 public:
  explicit VirtualMachine(CommunicatorOptions device = SimLink::defaultOptions())
      : device_(std::move(device)) {}

  int run(const std::vector<std::string>& arguments) {
    out.clear();
    errors.clear();
    const int status = runProgram(arguments, *this, [this](auto, const Environment& environment) {
      link = SimLink::make(environment.dispatcher, device_);
      if (prepare) prepare(*link);
      return Result<std::shared_ptr<Link>>::success(link);
    });
    time->runDue();  // what is still queued holds the message, and that the clock, which is `time`
    return status;
  }

  /// The events of the last run with `--json`.
  std::vector<nlohmann::json> events() const {
    std::vector<nlohmann::json> events;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
      events.push_back(nlohmann::json::parse(line));
    }
    return events;
  }

  std::vector<nlohmann::json> events(const std::string& type) const {
    auto some = events();
    std::erase_if(some, [&](const auto& event) { return event.at("type") != type; });
    return some;
  }

  /// The events in short: the type, and where there is one the value.
  std::vector<std::string> story() const {
    std::vector<std::string> story;
    for (const auto& event : events()) {
      auto line = event.at("type").get<std::string>();
      if (event.contains("value")) line.append(1, ' ').append(event["value"].dump());
      std::erase(line, '"');
      story.push_back(line);
    }
    return story;
  }

  std::string outcome() const { return events().back().value("outcome", "none"); }

  Environment environment() const override { return {time, time, random, nullptr, nullptr, "GB"}; }
  Result<std::shared_ptr<UserDefaults>> openStore(const std::string&) override {
    ++storesOpened;
    return Result<std::shared_ptr<UserDefaults>>::success(store);
  }
  void startLog(const std::string&, bool) override {}
  void run() override {
    stopped_ = false;
    time->runUntil([this] { return stopped_; }, std::chrono::hours(1));
  }
  void stop() override { stopped_ = true; }
  void onInterrupt(Work handler) override { interrupt = std::move(handler); }
  Result<std::string> readFile(const std::string& path) override {
    if (const auto file = files.find(path); file != files.end()) {
      return Result<std::string>::success(file->second);
    }
    return Result<std::string>::error({"FileError", 0, "cannot read " + path + ": no such file"});
  }
  Result<FileReader> openFile(const std::string& path) override {
    const auto file = readFile(path);
    if (!file.isSuccess()) return Result<FileReader>::error(file.error());
    return Result<FileReader>::success([this, rest = file.value()]() mutable {
      const auto piece = rest.substr(0, pieceSize);
      rest.erase(0, pieceSize);
      return Result<std::string>::success(piece);
    });
  }
  OutputState outputState() const override { return OutputState::whole; }
  void writeOut(std::string_view text) override { out += text; }
  void writeError(std::string_view text) override { errors += text; }
  bool isTerminal() const override { return false; }

  std::shared_ptr<VirtualTime> time = VirtualTime::make();
  std::shared_ptr<MemoryUserDefaults> store = std::make_shared<MemoryUserDefaults>();
  std::shared_ptr<SeededRandom> random = std::make_shared<SeededRandom>(1);
  std::shared_ptr<SimLink> link;
  std::function<void(SimLink&)> prepare;  ///< called before the command starts
  std::map<std::string, std::string> files;
  std::size_t pieceSize = 7;  ///< in which a file is opened
  int storesOpened = 0;
  Work interrupt;
  std::string out;
  std::string errors;

 private:
  const CommunicatorOptions device_;
  bool stopped_ = false;
};

}  // namespace tandrell
