#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Error.h>

#include <atomic>

namespace tandrell {
namespace {

// Never freed: objects that live as long as the process may still reach it while it ends.
std::atomic<const Environment*> installedEnvironment = nullptr;

}  // namespace

void Environment::install(Environment environment) {
  const auto* made = new Environment(std::move(environment));
  const Environment* none = nullptr;
  if (!installedEnvironment.compare_exchange_strong(none, made)) {
    fatalError("Environment: an environment is installed already");
  }
}

const Environment& Environment::installed() {
  const auto* environment = installedEnvironment.load();
  if (!environment) fatalError("Environment: no environment was installed");
  return *environment;
}

bool Environment::isInstalled() { return installedEnvironment.load() != nullptr; }

}  // namespace tandrell
