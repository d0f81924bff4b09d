#pragma once

#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/UserDefaults.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tandrell {

/// Calendar time. It may jump when the user or the network sets the clock; delays never use it.
class TANDRELL_API WallClock {
 public:
  virtual ~WallClock() = default;
  virtual Date date() const = 0;
};

/// Uniform random numbers over all 32 bits; not a security measure. Safe from any thread.
class TANDRELL_API RandomSource {
 public:
  virtual ~RandomSource() = default;
  virtual std::uint32_t next() = 0;
};

/// Everything that the library asks of the machine it runs on. A small value of shared handles,
/// handed down by constructor, so that many links can live in one process, each in a world of its
/// own. All members are set before it is used.
struct TANDRELL_API Environment {
  std::shared_ptr<Dispatcher> dispatcher;
  std::shared_ptr<WallClock> wallClock;
  std::shared_ptr<RandomSource> random;
  std::shared_ptr<UserDefaults> userDefaults;
  std::shared_ptr<CentralManagerFactory> centralManagers;
  /// The device's region as an ISO 3166 code of two letters, for numbers dialled without one.
  std::string regionCode = "US";

  /// The dispatcher's.
  QueuePtr mainQueue() const { return dispatcher->mainQueue(); }

  /// The process-wide environment behind the accessors that take none (`BleConfig::bleUtility()`,
  /// `HasDeviceUtil`, ...). The application installs it once at start-up, before it uses them;
  /// reading it before that stops the process.
  static void install(Environment environment);
  static const Environment& installed();
  static bool isInstalled();
};

}  // namespace tandrell
