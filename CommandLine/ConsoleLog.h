#pragma once

#include <TandrellCore/Utility/Logger.h>

#include <spdlog/logger.h>

#include <memory>
#include <string>

namespace tandrell {

/// The library's log on the standard error stream, a line per statement: time, level, source and
/// operation, text. Lines of the device's firmware are marked as such. What stands in a line has no
/// power over the terminal (see `printable`). Safe from any thread.
class ConsoleLog final : public LogFacade {
 public:
  enum class Content { hidden, shown };

  /// The level is one of `logLevels`; with "off", statements cost a comparison. Hidden content: the
  /// bytes that cross the radio, and what they say of people and their device, are left out of the
  /// lines that hold them.
  ConsoleLog(const std::string& level, Content content);

  void log(LogFacadeLevel level, std::string_view functionName, std::string_view fileName,
           int lineNumber, const LogUserInfo& userInfo, LogMessage message) override;

 private:
  const std::shared_ptr<spdlog::logger> logger_;
  const Content content_;
};

}  // namespace tandrell
