#include <CommandLine/ConsoleLog.h>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <array>

namespace tandrell {
namespace {

spdlog::level::level_enum levelNamed(const std::string& name) {
  return name == "verbose" ? spdlog::level::trace : spdlog::level::from_str(name);
}

spdlog::level::level_enum levelFor(LogFacadeLevel level) {
  static constexpr std::array levels = {spdlog::level::trace, spdlog::level::debug,
                                        spdlog::level::info,  spdlog::level::warn,
                                        spdlog::level::err,   spdlog::level::critical};
  return levels[static_cast<std::size_t>(level)];
}

}  // namespace

ConsoleLog::ConsoleLog(const std::string& level)
    : logger_(std::make_shared<spdlog::logger>("tandrell",
                                               std::make_shared<spdlog::sinks::stderr_sink_mt>())) {
  logger_->set_level(levelNamed(level));
  logger_->set_pattern("%H:%M:%S.%e %-8l %v");
}

void ConsoleLog::log(LogFacadeLevel level, std::string_view functionName, std::string_view fileName,
                     int lineNumber, const LogUserInfo& userInfo, LogMessage message) {
  const auto spdlogLevel = levelFor(level);
  if (!logger_->should_log(spdlogLevel)) return;
  const auto text = message();
  if (!text) return;
  const bool fromDevice = userInfo.contains(std::string(LogFacadeConfig::LogUserInfoSourceKey));
  logger_->log(spdlogLevel, "{}{}:{} {} {}", fromDevice ? "device " : "", fileName, lineNumber,
               functionName, *text);
}

}  // namespace tandrell
