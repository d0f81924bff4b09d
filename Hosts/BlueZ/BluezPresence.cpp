#include <Hosts/BlueZ/BluezPresence.h>

#include <map>
#include <utility>

namespace tandrell {
namespace {

using State = CentralManagerState;

bool isDenied(const Error& error) { return error.domain.ends_with(".AccessDenied"); }

}  // namespace

void BluezPresence::load(std::function<void(bool first)> loaded) {
  const auto take = [this, loaded = std::move(loaded)](sdbus::MethodReply* reply,
                                                       const std::optional<Error>& error) {
    if (busError_) return;
    loadError_ = error;
    if (reply) {
      std::map<sdbus::ObjectPath, BluezInterfaces> objects;
      *reply >> objects;
      objects_.clear();
      for (const auto& [path, interfaces] : objects) objects_.add(path, interfaces);
      loaded_ = true;
    }
    chooseAdapter();
    loaded(reply && !std::exchange(wasPresent_, true));
  };
  bus_.call("/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", {}, take);
}

void BluezPresence::didLeave() {
  loaded_ = false;
  objects_.clear();
}

void BluezPresence::didLoseBus(const Error& error) {
  busError_ = error;
  objects_.clear();
}

/// Keeps to the one in use, also where another one comes before it later.
void BluezPresence::chooseAdapter() {
  if (!objects_.adapter(adapter_)) adapter_ = objects_.adapterPath(adapterName_);
}

BluezPresence::Condition BluezPresence::condition() {
  chooseAdapter();
  if (busError_) {
    return {isDenied(*busError_) ? State::unauthorized : State::unsupported, BluezError::noBus};
  }
  if (!loaded_) {
    if (loadError_ && isDenied(*loadError_)) return {State::unauthorized, BluezError::noPermission};
    return {wasPresent_ ? State::resetting : State::unsupported, BluezError::noDaemon};
  }
  const auto* adapter = objects_.adapter(adapter_);
  if (!adapter) return {State::unsupported, BluezError::noAdapter};
  if (!adapter->powered) return {State::poweredOff, BluezError::adapterOff};
  return {State::poweredOn, std::nullopt};
}

}  // namespace tandrell
