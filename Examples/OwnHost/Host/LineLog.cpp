#include "LineLog.h"

#include <array>

void LineLog::log(tandrell::LogFacadeLevel level, std::string_view, std::string_view fileName, int,
                  const tandrell::LogUserInfo& userInfo, tandrell::LogMessage message) {
  constexpr std::array names = {"verbose", "debug", "info", "warning", "error", "severe"};
  if (level < lowest_) return;  // before its text is made
  const auto text = message();
  if (!text) return;
  const bool isFirmware =
      userInfo.contains(std::string(tandrell::LogFacadeConfig::LogUserInfoSourceKey));
  const std::lock_guard lock(mutex_);
  stream_ << names.at(static_cast<std::size_t>(level)) << ' '
          << (isFirmware ? "firmware" : fileName) << ": " << *text << std::endl;
  ++lines_;
}
