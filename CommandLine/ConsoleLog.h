#pragma once

#include <TandrellCore/Utility/Logger.h>

#include <spdlog/logger.h>

#include <memory>
#include <string>

namespace tandrell {

/// The library's log on the standard error stream, a line per statement: time, level, source and
/// operation, text. Lines of the device's firmware are marked as such. Safe from any thread.
class ConsoleLog final : public LogFacade {
 public:
  /// The level is one of `logLevels`; with "off", statements cost a comparison.
  explicit ConsoleLog(const std::string& level);

  void log(LogFacadeLevel level, std::string_view functionName, std::string_view fileName,
           int lineNumber, const LogUserInfo& userInfo, LogMessage message) override;

 private:
  const std::shared_ptr<spdlog::logger> logger_;
};

}  // namespace tandrell
