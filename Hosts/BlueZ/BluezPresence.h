#pragma once

#include <Hosts/BlueZ/BluezObjects.h>
#include <Hosts/BlueZ/BluezRadio.h>

#include <functional>
#include <optional>
#include <string>

namespace tandrell {

/// Whether there is a bluetoothd with the adapter that is wanted, and what it has. Owned by an
/// engine, which passes on what the bus tells; everything happens on the bus's thread.
class BluezPresence {
 public:
  struct Condition {
    CentralManagerState state;
    std::optional<BluezError> problem;
  };

  /// The bus outlives this; an empty name stands for the first adapter.
  BluezPresence(BluezBus& bus, std::string adapterName)
      : bus_(bus), adapterName_(std::move(adapterName)) {}

  /// Asks bluetoothd for all its objects. Then calls `loaded`, with whether that succeeded for the
  /// first time; not when the bus has gone meanwhile.
  void load(std::function<void(bool first)> loaded);
  void didLeave();
  void didLoseBus(const Error& error);

  /// How things stand now.
  Condition condition();

  BluezObjects& objects() { return objects_; }
  /// The adapter's path as of the last load or condition; empty where there is none.
  const std::string& adapter() const { return adapter_; }

 private:
  void chooseAdapter();

  BluezBus& bus_;
  const std::string adapterName_;
  BluezObjects objects_;
  std::string adapter_;
  bool loaded_ = false;  // the objects are known
  bool wasPresent_ = false;
  std::optional<Error> busError_;
  std::optional<Error> loadError_;
};

}  // namespace tandrell
