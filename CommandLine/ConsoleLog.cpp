#include <CommandLine/ConsoleLog.h>
#include <CommandLine/Printable.h>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
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

/// Behind these stand bytes, or a message of the device link laid out.
constexpr std::string_view marks[] = {
    "; data=", "; base64=", "Command: ", "updateSettings: start; "};

std::string withoutContent(const std::string& text) {
  constexpr std::string_view parcelLine = "ParcelCommand: ";  // names it, and lays nothing out
  const auto from = text.starts_with(parcelLine) ? parcelLine.size() : 0;
  auto end = text.npos;
  for (const auto mark : marks) {
    const auto at = text.find(mark, from);
    if (at != text.npos) end = std::min(end, at + mark.size());
  }
  if (end == text.npos) return text;
  // Bytes may spell anything, so only the last of these is the line's own.
  const auto error = text.starts_with("peripheralDidUpdateValue: ") ? text.rfind("; error=") : end;
  return text.substr(0, end) + "(hidden)" + (error > end ? text.substr(error) : "");
}

}  // namespace

ConsoleLog::ConsoleLog(const std::string& level, Content content)
    : logger_(std::make_shared<spdlog::logger>("tandrell",
                                               std::make_shared<spdlog::sinks::stderr_sink_mt>())),
      content_(content) {
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
  const auto shown = content_ == Content::shown ? *text : withoutContent(*text);
  logger_->log(spdlogLevel, "{}{}:{} {} {}", fromDevice ? "device " : "", fileName, lineNumber,
               functionName, printable(shown));
}

}  // namespace tandrell
