#pragma once

#include <TandrellCore/Platform/Export.h>

#include <absl/functional/function_ref.h>
#include <fmt/format.h>

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>

namespace tandrell {

/// Severity, lowest first.
enum class LogFacadeLevel { verbose = 0, debug = 1, info = 2, warning = 3, error = 4, severe = 5 };

/// The level with this raw value; absent for anything but 0 to 5.
TANDRELL_API std::optional<LogFacadeLevel> logFacadeLevel(int rawValue);

/// What a statement adds to its text, by key; see `LogFacadeConfig::LogUserInfoSourceKey`.
using LogUserInfo = std::map<std::string, std::any>;

/// A message that has not been built yet. Valid only during the call that receives it.
using LogMessage = absl::FunctionRef<std::optional<std::string>()>;

/// The application's logging back end. Called on the thread of the statement, from many at once.
class TANDRELL_API LogFacade {
 public:
  virtual ~LogFacade() = default;
  /// `message` is built only if it is called; a back end that filters a line leaves it alone.
  virtual void log(LogFacadeLevel level, std::string_view functionName, std::string_view fileName,
                   int lineNumber, const LogUserInfo& userInfo, LogMessage message) = 0;
};

/// The process-wide choice of back end. With none, a log statement costs one check.
class TANDRELL_API LogFacadeConfig {
 public:
  using Factory = std::function<std::shared_ptr<LogFacade>()>;

  /// The `userInfo` key that names where a line comes from; "fir" marks the device's firmware.
  static constexpr std::string_view LogUserInfoSourceKey = "LogUserInfoSourceKey";

  /// Sets the factory. It is called at the next log statement, once; the back end that it makes
  /// stays in use for the life of the process, whatever is registered later. A factory that makes
  /// none is asked again. The factory may log, but nothing that is logged before it has returned is
  /// kept. May be called at any time, best at start-up.
  static void registerLogger(Factory factory);

  /// The factory that was set last; absent when there is none.
  static Factory registeredLogger();

  /// The back end, made on first use; absent when no factory is registered. For `Logger`.
  static LogFacade* logger();
};

/// The one entry point of every log statement. `message` is a callable whose result (any value that
/// can be printed, or an absent optional) is asked for by the back end only.
class TANDRELL_API Logger {
 public:
  static const LogUserInfo noUserInfo;

  /// One line for the back end.
  template <class Message>
  static void log(LogFacadeLevel level, Message&& message, std::string_view functionName,
                  std::string_view fileName, int lineNumber,
                  const LogUserInfo& userInfo = noUserInfo) {
    LogFacade* backEnd = LogFacadeConfig::logger();
    if (!backEnd) return;
    backEnd->log(level, functionName, fileName, lineNumber, userInfo,
                 [&message] { return textOf(message()); });
  }

  /// The same at the level of the name.
  template <class... A>
  static void verbose(A&&... a) {
    log(LogFacadeLevel::verbose, std::forward<A>(a)...);
  }
  template <class... A>
  static void debug(A&&... a) {
    log(LogFacadeLevel::debug, std::forward<A>(a)...);
  }
  template <class... A>
  static void info(A&&... a) {
    log(LogFacadeLevel::info, std::forward<A>(a)...);
  }
  template <class... A>
  static void warning(A&&... a) {
    log(LogFacadeLevel::warning, std::forward<A>(a)...);
  }
  template <class... A>
  static void error(A&&... a) {
    log(LogFacadeLevel::error, std::forward<A>(a)...);
  }
  template <class... A>
  static void severe(A&&... a) {
    log(LogFacadeLevel::severe, std::forward<A>(a)...);
  }

 private:
  template <class V>
  static std::optional<std::string> textOf(V&& value) {
    if constexpr (std::is_convertible_v<V, std::optional<std::string>>) {
      return std::forward<V>(value);
    } else {
      return fmt::to_string(value);
    }
  }
};

/// The log statements of one source file: `log.debug("startNextTask()", [&] { ... })`.
class TANDRELL_API SourceLog {
 public:
  using Location = std::source_location;

  explicit constexpr SourceLog(std::string_view fileName) : fileName_(fileName) {}

  /// One line with the operation's name, the file's and the line's number.
  template <class M>
  void verbose(std::string_view function, M&& message, Location at = Location::current()) const {
    Logger::verbose(message, function, fileName_, static_cast<int>(at.line()));
  }
  template <class M>
  void debug(std::string_view function, M&& message, Location at = Location::current()) const {
    Logger::debug(message, function, fileName_, static_cast<int>(at.line()));
  }
  template <class M>
  void warning(std::string_view function, M&& message, Location at = Location::current()) const {
    Logger::warning(message, function, fileName_, static_cast<int>(at.line()));
  }
  template <class M>
  void error(std::string_view function, M&& message, Location at = Location::current()) const {
    Logger::error(message, function, fileName_, static_cast<int>(at.line()));
  }
  template <class M>
  void log(LogFacadeLevel level, std::string_view function, M&& message,
           const LogUserInfo& userInfo, Location at = Location::current()) const {
    Logger::log(level, message, function, fileName_, static_cast<int>(at.line()), userInfo);
  }

 private:
  std::string_view fileName_;
};

}  // namespace tandrell
