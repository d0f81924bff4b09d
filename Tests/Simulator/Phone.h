#pragma once

#include <Simulator/DeviceFramer.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <Simulator/VirtualTime.h>
#include <Tests/Contracts/Listener.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// A central's application that notes down "milliseconds event" and, when `eager`, scans, connects,
/// discovers and subscribes as soon as it can, and takes apart what the device sends.
class Phone final : public Listener {
 public:
  static std::shared_ptr<Phone> make(const std::shared_ptr<VirtualTime>& time,
                                     const std::shared_ptr<SimulatedRadio>& radio,
                                     std::optional<std::string> restoreIdentifier = {},
                                     bool eager = true);

  /// Writes in pieces of 20 bytes, each after the confirmation of the one before.
  void send(const Data& bytes);
  void send(const Parcel& parcel);

  void didUpdateState() override;
  void didDiscover(const PeripheralPtr& found, const Advertisement& advertisement) override;
  void didConnect(const PeripheralPtr& connected) override;
  void didDisconnect(const PeripheralPtr& lost, const std::optional<Error>& error) override;
  void didFailToConnect(const PeripheralPtr& failed, const std::optional<Error>& error) override;
  void didDiscoverServices(const std::vector<GattService>& services,
                           const std::optional<Error>& error) override;
  void didDiscoverCharacteristics(const GattService& in,
                                  const std::vector<GattCharacteristic>& found,
                                  const std::optional<Error>& error) override;
  void didUpdateValue(const GattCharacteristic& characteristic, std::optional<Data> value,
                      const std::optional<Error>& error) override;
  void didWriteValue(const GattCharacteristic& characteristic,
                     const std::optional<Error>& error) override;

  /// The reports on parcels so far: "milliseconds id status".
  const std::vector<std::string>& reports() const { return reports_; }

  std::vector<Data> notifications;
  std::vector<DeviceFrame> frames;
  bool eager = true;

 private:
  void note(std::string event) override;
  std::string stamped(const std::string& text) const;
  void scan();
  void writeNext();
  void received(const DeviceFrame& frame);

  std::shared_ptr<VirtualTime> time_;
  std::deque<Data> outgoing_;
  DeviceFramer framer_;
  std::vector<std::string> reports_;
};

/// A phone and a communicator side by side.
struct World {
  explicit World(const CommunicatorOptions& options = {}, const SimulatedRadioOptions& air = {},
                 std::optional<std::string> restoreIdentifier = {}, bool eager = true,
                 std::shared_ptr<VirtualTime> timeline = VirtualTime::make())
      : time(std::move(timeline)),
        radio(SimulatedRadio::make(time, air)),
        device(SimulatedCommunicator::make(radio, options)),
        phone(Phone::make(time, radio, std::move(restoreIdentifier), eager)) {}

  /// Runs long enough for the phone to be subscribed and greeted.
  void meet() {
    time->advance(std::chrono::seconds(1));
    phone->takeEvents();
  }

  std::shared_ptr<VirtualTime> time;
  std::shared_ptr<SimulatedRadio> radio;
  std::shared_ptr<SimulatedCommunicator> device;
  std::shared_ptr<Phone> phone;
};

inline Parcel parcelWith(std::uint32_t id, const std::string& text = "hello",
                         PackageType::Type type = PackageType::message) {
  MessageDto message;
  message.set_content(text);
  Parcel parcel;
  parcel.set_id(id);
  parcel.mutable_package()->set_type(type);
  parcel.mutable_package()->set_data(message.SerializeAsString());
  return parcel;
}

}  // namespace tandrell
