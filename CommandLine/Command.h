#pragma once

#include <CommandLine/Link.h>
#include <CommandLine/Output.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace tandrell {

enum class ExitStatus {
  done = 0,
  failed = 1,
  usage = 2,
  timedOut = 3,
  noDevice = 4,
  notSupported = 5,
  interrupted = 130
};

/// What a command is given to run. The references and the link outlive the run.
struct Context {
  Machine& machine;
  Environment environment;  ///< without store and radio for a command that uses no device
  Link* link;               ///< null for a command that uses no link
  Output& output;
  std::optional<Duration> timeout;  ///< as the user asked; absent: the command's own
  std::function<void(ExitStatus)> finished;
};

/// A command under way, on the main queue. It ends by calling `Context::finished` once.
class Run {
 public:
  virtual ~Run() = default;
  virtual void start() = 0;
  /// The user wants it to end; it may take a moment to part from the device.
  virtual void interrupt() = 0;
};

/// A command of the program, from its options to its run; there is one file for each, and
/// `Program.cpp` lists them.
class Command {
 public:
  virtual ~Command() = default;

  virtual std::string name() const = 0;
  /// One line for the list of commands.
  virtual std::string description() const = 0;
  /// A complete command line, for the help text.
  virtual std::string example() const = 0;

  /// Adds the command's own options and arguments; what they are bound to belongs to the command.
  virtual void declare(CLI::App& app) = 0;

  /// Looks at the arguments before anything is opened or sent. Returns what is wrong with them, in
  /// one line, and then the program ends with `ExitStatus::usage`.
  virtual std::optional<std::string> check(const Environment&) { return std::nullopt; }

  /// Whether it needs the store and a link to the device; without, neither is opened.
  virtual bool usesDevice() const { return true; }
  /// Whether it needs the link, be it without the store.
  virtual bool usesLink() const { return usesDevice(); }

  virtual std::shared_ptr<Run> makeRun(Context context) = 0;
};

}  // namespace tandrell
