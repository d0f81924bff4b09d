#include <TandrellCore/Utility/DefaultStore.h>

#include <mutex>

namespace tandrell {
namespace {

constexpr SourceLog log("Utility/DefaultStore");
constexpr std::string_view defaultPrefix = "default";

struct Provider {
  std::mutex mutex;
  AppDefaultModule::UserIdProvider provider;
};

Provider& shared() {
  static auto* provider = new Provider();
  return *provider;
}

}  // namespace

void AppDefaultModule::setUserIdProvider(UserIdProvider provider) {
  const std::lock_guard lock(shared().mutex);
  shared().provider = std::move(provider);
}

AppDefaultModule::UserIdProvider AppDefaultModule::userIdProvider() {
  const std::lock_guard lock(shared().mutex);
  return shared().provider;
}

std::string currentUserKeyPart() {
  const auto provider = AppDefaultModule::userIdProvider();
  if (!provider) {
    log.debug("key()", [] { return "key: user is nil, using default"; });
    return std::string(defaultPrefix);
  }
  auto user = provider();
  if (!user.empty()) return user;
  log.debug("key()", [] { return "key: user is empty, using default"; });
  return std::string(defaultPrefix);
}

namespace mapperLog {

void putFailed(std::string_view what, std::string_view error) {
  log.error("putValue(_:key:userDefaults:)",
            [&] { return fmt::format("{}; error={}", what, error); });
}

void getFailed(std::string_view what, std::string_view error) {
  log.error("getValue(key:userDefaults:)",
            [&] { return fmt::format("{}; error={}", what, error); });
}

}  // namespace mapperLog
}  // namespace tandrell
