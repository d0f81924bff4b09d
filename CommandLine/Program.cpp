#include <CommandLine/Arguments.h>
#include <CommandLine/Command.h>
#include <CommandLine/DecodeCommand.h>
#include <CommandLine/DeviceSettingsCommand.h>
#include <CommandLine/ForecastCommand.h>
#include <CommandLine/Printable.h>
#include <CommandLine/Program.h>
#include <CommandLine/SendCommand.h>
#include <CommandLine/SimCommand.h>
#include <CommandLine/SosCommand.h>
#include <CommandLine/StatusCommand.h>
#include <CommandLine/TrackCommand.h>
#include <CommandLine/WatchCommand.h>
#include <TandrellCore/Utility/DefaultStore.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

namespace tandrell {
namespace {

std::vector<std::unique_ptr<Command>> makeCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(std::make_unique<SendCommand>());
  commands.push_back(std::make_unique<WatchCommand>());
  commands.push_back(std::make_unique<StatusCommand>());
  commands.push_back(std::make_unique<SosCommand>());
  commands.push_back(std::make_unique<TrackCommand>());
  commands.push_back(std::make_unique<ForecastCommand>());
  commands.push_back(std::make_unique<DeviceSettingsCommand>());
  commands.push_back(std::make_unique<DecodeCommand>());
  commands.push_back(std::make_unique<SimCommand>());
  return commands;
}

/// One run of the program.
class Program {
 public:
  Program(Machine& machine, const LinkMaker& makeLink) : machine_(machine), makeLink_(makeLink) {}

  int run(std::vector<std::string> arguments) {
    declare();
    std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
    try {
      app_.parse(arguments);
    } catch (const CLI::ParseError& stop) {
      return didStop(stop);
    }
    const auto chosen = std::find_if(commands_.begin(), commands_.end(), [this](const auto& each) {
      return app_.got_subcommand(each->name());
    });
    if (chosen == commands_.end()) return refuseArguments("no command was given");
    return statusOf(runCommand(**chosen));
  }

 private:
  static int statusOf(ExitStatus status) { return static_cast<int>(status); }

  void declare() {
    app_.set_version_flag("--version", "tandrell " TANDRELL_VERSION);
    app_.footer("'tandrell COMMAND --help' shows a command's options and an example.");
    app_.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app_.get_formatter()->label("Subcommands", "Commands");
    app_.require_subcommand(0, 1);
    app_.fallthrough();  // so that these options may also stand behind the command
    app_.add_option("--link", link_, "The way to the device: " + linkNames())
        ->type_name("LINK")
        ->check(CLI::Validator([](std::string& name) { return checkLink(name); }, ""))
        ->capture_default_str();
    app_.add_flag("--json", json_, "Print one JSON object per line");
    addSeconds(app_, "--timeout", timeout_, "Give up after this many seconds");
    app_.add_option("--log-level", logLevel_, "The least severe of the log lines to show")
        ->check(CLI::IsMember(logLevels()))
        ->capture_default_str();
    app_.add_flag("--log-content", logContent_,
                  "Do not hide in them what crosses the radio: messages, and whose they are");
    app_.add_option("--data-dir", dataDirectory_, "Where the state is kept between runs")
        ->type_name("DIR");
    app_.add_option("--user", user_, "Whose state it is")->type_name("ID");
    for (const auto& command : commands_) {
      auto* subcommand = app_.add_subcommand(command->name(), command->description());
      subcommand->footer("Example:\n  " + command->example());
      command->declare(*subcommand);
    }
  }

  static std::string checkLink(const std::string& name) {
    return isLinkName(name)
               ? ""
               : fmt::format("{} is no link of this program, which has {}", name, linkNames());
  }

  /// Help or the version was asked for, or the arguments make no sense.
  int didStop(const CLI::ParseError& stop) {
    if (stop.get_exit_code() == 0) {
      std::ostringstream text;
      app_.exit(stop, text, text);
      machine_.writeOut(text.str());
      return statusOf(ExitStatus::done);
    }
    return refuseArguments(stop.what());
  }

  int refuseArguments(std::string_view problem) {
    machine_.writeError(fmt::format("tandrell: {}; see 'tandrell --help'\n", printable(problem)));
    return statusOf(ExitStatus::usage);
  }

  ExitStatus runCommand(Command& command) {
    Output output(machine_, json_);
    const auto environment = machine_.environment();
    if (const auto problem = command.check(environment)) {
      return refuse(output, environment, ExitStatus::usage, "usage", *problem);
    }
    machine_.startLog(logLevel_, logContent_);
    if (command.usesDevice()) return runWithDevice(command, environment, output);
    std::shared_ptr<Link> link;
    if (command.usesLink()) {
      const auto made = makeLink_(link_, environment);
      if (!made.isSuccess()) return refuseLink(output, environment, made.error());
      link = made.value();
    }
    return execute(command, {machine_, environment, link.get(), output, timeout(), {}});
  }

  ExitStatus runWithDevice(Command& command, Environment environment, Output& output) {
    if (!user_.empty()) AppDefaultModule::setUserIdProvider([user = user_] { return user; });

    const auto store = machine_.openStore(dataDirectory_);
    if (!store.isSuccess()) {
      return refuse(output, environment, ExitStatus::failed, "failed", store.error().text);
    }
    environment.userDefaults = store.value();
    const auto link = makeLink_(link_, environment);
    if (!link.isSuccess()) return refuseLink(output, environment, link.error());
    environment.centralManagers = link.value()->centralManagers();
    return execute(command, {machine_, environment, link.value().get(), output, timeout(), {}});
  }

  static ExitStatus refuseLink(Output& output, const Environment& environment, const Error& error) {
    return refuse(output, environment, ExitStatus::failed, "failed", error.text);
  }

  static ExitStatus refuse(Output& output, const Environment& environment, ExitStatus status,
                           std::string_view outcome, const std::string& problem) {
    output.error(problem);
    output.refused(Moment::now(environment), statusOf(status), outcome);
    return status;
  }

  ExitStatus execute(Command& command, Context context) {
    auto status = ExitStatus::failed;
    context.finished = [&](ExitStatus ended) {
      status = ended;
      machine_.stop();
    };
    const auto queue = context.environment.mainQueue();
    const auto run = command.makeRun(std::move(context));
    // In this order, so that an interruption finds the run started.
    queue->async([run] { run->start(); });
    machine_.onInterrupt([run] { run->interrupt(); });
    machine_.run();
    machine_.onInterrupt(nullptr);
    return status;
  }

  std::optional<Duration> timeout() const {
    return timeout_ ? std::optional(durationOf(*timeout_)) : std::nullopt;
  }

  Machine& machine_;
  const LinkMaker& makeLink_;
  CLI::App app_{"Messages by satellite communicator", "tandrell"};
  const std::vector<std::unique_ptr<Command>> commands_ = makeCommands();
  std::string link_ = "sim";
  bool json_ = false;
  std::optional<double> timeout_;
  std::string logLevel_ = "warning";
  bool logContent_ = false;
  std::string dataDirectory_;
  std::string user_;
};

/// Of a program that has done everything but to tell it.
ExitStatus statusOf(Machine::OutputState state) {
  if (state == Machine::OutputState::whole) return ExitStatus::done;
  return state == Machine::OutputState::failed ? ExitStatus::failed : ExitStatus::interrupted;
}

}  // namespace

int runProgram(const std::vector<std::string>& arguments, Machine& machine,
               const LinkMaker& makeLink) {
  // Its runtime would write to the standard error stream by itself, of what the program reports.
  google::protobuf::SetLogHandler(nullptr);
  const int status = Program(machine, makeLink).run(arguments);
  return status == 0 ? static_cast<int>(statusOf(machine.outputState())) : status;
}

const std::vector<std::string>& logLevels() {
  static const std::vector<std::string> levels = {"off",  "error", "warning",
                                                  "info", "debug", "verbose"};
  return levels;
}

}  // namespace tandrell
