#include <Tests/Support/LogCapture.h>

#include <memory>

namespace tandrell::test {

LogCapture& LogCapture::start() {
  static const auto capture = [] {
    auto made = std::make_shared<LogCapture>();
    LogFacadeConfig::registerLogger([made] { return made; });
    return made;
  }();
  capture->clear();
  return *capture;
}

void LogCapture::log(LogFacadeLevel level, std::string_view functionName, std::string_view fileName,
                     int lineNumber, const LogUserInfo& userInfo, LogMessage message) {
  LogLine line{level,    std::string(functionName),   std::string(fileName), lineNumber,
               userInfo, message().value_or("absent")};
  const std::lock_guard lock(mutex_);
  lines_.push_back(std::move(line));
}

void LogCapture::clear() {
  const std::lock_guard lock(mutex_);
  lines_.clear();
}

std::vector<LogLine> LogCapture::lines() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

std::vector<std::string> LogCapture::texts(LogFacadeLevel level) const {
  std::vector<std::string> texts;
  for (const auto& line : lines()) {
    if (line.level == level) texts.push_back(line.text);
  }
  return texts;
}

}  // namespace tandrell::test
