#pragma once

#include <Hosts/BlueZ/BluezLink.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

namespace tandrell {

/// Shares the radio between attempts to connect and discovery. bluetoothd makes one connection at a
/// time, is slow at it while it discovers, and waits long for a device that is out of reach. So one
/// attempt has the radio, alone; where others need it too, only for a few seconds, and then
/// discovery has it and shows who is in reach.
///
/// Owned by the engine; everything happens on the bus's thread.
class BluezTurns {
 public:
  using Links = std::map<Uuid, std::shared_ptr<BluezLink>>;

  /// The references outlive this. `didChange` is called when `next` is to be asked again.
  BluezTurns(BluezBus& bus, const Links& links, std::function<bool()> wantsDiscovery,
             std::function<void()> didChange);

  /// The link whose attempt has the radio now; null where discovery may have it.
  std::shared_ptr<BluezLink> next();

 private:
  std::shared_ptr<BluezLink> choose() const;
  bool mayGo(const BluezLink& link) const;
  bool isAwaited() const;
  std::ptrdiff_t attempts() const;
  void begin(std::shared_ptr<BluezLink> link);
  void limit();
  void end();

  BluezBus& bus_;
  const Links& links_;
  const std::function<bool()> wantsDiscovery_;
  const std::function<void()> didChange_;
  std::shared_ptr<BluezLink> holder_;
  std::uint64_t turn_ = 0;     // counts turns and the pauses between them
  bool hasDiscovered_ = true;  // long enough since the last turn
};

}  // namespace tandrell
