#pragma once

#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Result.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tandrell {

/// The machine that the program runs on: the real one in `main`, one with virtual time in tests.
/// Everything is called on the main thread.
class Machine {
 public:
  virtual ~Machine() = default;

  /// The machine's environment, but for the store and the radio: those are added once it is known
  /// that the command makes sense.
  virtual Environment environment() const = 0;

  /// Opens the store in this directory, or in the usual place where it is empty.
  virtual Result<std::shared_ptr<UserDefaults>> openStore(const std::string& directory) = 0;

  /// Sends the library's log lines of this level and above to the standard error stream, with or
  /// without what crosses the radio. The level is one of `logLevels`.
  virtual void startLog(const std::string& level, bool withContent) = 0;

  /// Runs the main queue until `stop()`.
  virtual void run() = 0;
  virtual void stop() = 0;

  /// Calls the handler on the main queue at the first interruption (Ctrl-C).
  virtual void onInterrupt(Work handler) = 0;

  /// The whole file, or the standard input stream until its end where the path is "-".
  virtual Result<std::string> readFile(const std::string& path) = 0;

  /// Gives the same piece by piece; an empty piece is the end.
  using FileReader = std::function<Result<std::string>()>;
  virtual Result<FileReader> openFile(const std::string& path) = 0;

  /// What became of the standard output: everything was written, or its reader has gone, or some of
  /// it could not be written, which has been said on the error stream.
  enum class OutputState { whole, readerGone, failed };
  virtual OutputState outputState() const = 0;

  virtual void writeOut(std::string_view text) = 0;
  virtual void writeError(std::string_view text) = 0;
  /// Whether a person reads the standard output as it appears.
  virtual bool isTerminal() const = 0;
};

}  // namespace tandrell
