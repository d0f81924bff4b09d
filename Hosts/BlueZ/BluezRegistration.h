#pragma once

#include <Hosts/BlueZ/BluezBus.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tandrell {

/// One object of this process that bluetoothd is to know of: services or an advertisement. Brings
/// bluetoothd to the state that is wanted with one call at a time, and goes on trying where it
/// refuses. Owned by the server; everything happens on the bus's thread.
class BluezRegistration {
 public:
  /// How it is registered, and what becomes of that.
  struct Kind {
    std::string interface;  ///< of the adapter
    std::string noun;       ///< "Application": its methods are named after it
    std::string path;       ///< of the object
  };
  /// Told when it stands that was not, and at the first of several refusals.
  using Told = std::function<void(const std::optional<Error>&)>;

  /// The bus outlives this.
  BluezRegistration(BluezBus& bus, Kind kind, Told told)
      : bus_(bus), kind_(std::move(kind)), told_(std::move(told)) {}

  /// It is to be registered with this adapter; another one only after `forget`.
  void want(const std::string& adapter);
  void unwant();
  /// Registers anew what is registered, or on its way: bluetoothd reads an object only then.
  void renew();
  /// bluetoothd or its adapter has gone, and with it what was registered there.
  void forget();
  /// Unregisters without waiting: the end.
  void end();

 private:
  void proceed();
  void call(const std::string& verb, std::function<void(const std::optional<Error>&)> reply);
  void didRegister(const std::optional<Error>& error);

  BluezBus& bus_;
  const Kind kind_;
  const Told told_;
  std::string adapter_;
  bool wanted_ = false;
  bool registered_ = false;  // as far as bluetoothd has been asked
  bool calling_ = false;
  bool stale_ = false;       // to be registered anew
  bool tell_ = false;        // the next success is told
  bool refused_ = false;     // the last attempt failed
  std::uint64_t epoch_ = 0;  // counts what was forgotten
};

}  // namespace tandrell
