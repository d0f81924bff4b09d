#pragma once

#include <TandrellCore/Utility/Logger.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <ostream>

/// A log back end: a line for each statement of a level or above, for example
/// "debug DeviceUtil: startNextTask: count=1". Lines of the device's firmware are marked as such.
/// Safe from any thread; the stream must outlive the process's last statement.
class LineLog final : public tandrell::LogFacade {
 public:
  LineLog(std::ostream& stream, tandrell::LogFacadeLevel lowest)
      : stream_(stream), lowest_(lowest) {}

  void log(tandrell::LogFacadeLevel level, std::string_view functionName, std::string_view fileName,
           int lineNumber, const tandrell::LogUserInfo& userInfo,
           tandrell::LogMessage message) override;

  /// How many have been written.
  std::size_t lines() const { return lines_; }

 private:
  std::ostream& stream_;
  const tandrell::LogFacadeLevel lowest_;
  std::mutex mutex_;
  std::atomic<std::size_t> lines_ = 0;
};
