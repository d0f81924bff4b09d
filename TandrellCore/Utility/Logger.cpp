#include <TandrellCore/Utility/Logger.h>

#include <atomic>
#include <mutex>
#include <utility>

namespace tandrell {
namespace {

// Set while there is anything to ask: the only thing that a statement without a back end reads.
std::atomic<bool> configured = false;
std::atomic<LogFacade*> createdLogger = nullptr;

struct Registration {
  std::mutex mutex;
  LogFacadeConfig::Factory factory;
  bool isMaking = false;
  std::shared_ptr<LogFacade> created;
};

// Never freed: other threads may log while the process ends.
Registration& registration() {
  static auto* registration = new Registration();
  return *registration;
}

/// Calls the factory under no lock: it may log. What is logged before it has returned is dropped.
LogFacade* makeLogger() {
  auto& shared = registration();
  std::unique_lock lock(shared.mutex);
  if (shared.created || shared.isMaking || !shared.factory) return shared.created.get();
  const auto factory = shared.factory;
  shared.isMaking = true;
  lock.unlock();
  auto made = factory();
  lock.lock();
  shared.isMaking = false;
  if (!shared.created && made) {
    shared.created = std::move(made);
    createdLogger.store(shared.created.get(), std::memory_order_release);
  }
  return shared.created.get();
}

}  // namespace

const LogUserInfo Logger::noUserInfo;

std::optional<LogFacadeLevel> logFacadeLevel(int rawValue) {
  if (rawValue < 0 || rawValue > 5) return std::nullopt;
  return static_cast<LogFacadeLevel>(rawValue);
}

void LogFacadeConfig::registerLogger(Factory factory) {
  const std::lock_guard lock(registration().mutex);
  registration().factory = std::move(factory);
  configured = registration().factory != nullptr || createdLogger != nullptr;
}

LogFacadeConfig::Factory LogFacadeConfig::registeredLogger() {
  const std::lock_guard lock(registration().mutex);
  return registration().factory;
}

LogFacade* LogFacadeConfig::logger() {
  if (!configured.load(std::memory_order_relaxed)) return nullptr;
  if (auto* logger = createdLogger.load(std::memory_order_acquire)) return logger;
  return makeLogger();
}

}  // namespace tandrell
