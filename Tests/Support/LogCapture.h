#pragma once

#include <TandrellCore/Utility/Logger.h>

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace tandrell::test {

/// One log statement as the back end received it.
struct LogLine {
  LogFacadeLevel level;
  std::string function;
  std::string file;
  int line;
  LogUserInfo userInfo;
  std::string text;
};

/// The logging back end of a test process: keeps every line. Safe from any thread.
class LogCapture final : public LogFacade {
 public:
  /// The one capture of the process, registered on first use and emptied by every call.
  static LogCapture& start();

  void log(LogFacadeLevel level, std::string_view functionName, std::string_view fileName,
           int lineNumber, const LogUserInfo& userInfo, LogMessage message) override;

  void clear();
  std::vector<LogLine> lines() const;
  /// The texts of the lines of one level, oldest first.
  std::vector<std::string> texts(LogFacadeLevel level) const;

 private:
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};

}  // namespace tandrell::test
