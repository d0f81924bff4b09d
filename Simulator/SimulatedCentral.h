#pragma once

#include <Simulator/RadioTimeline.h>
#include <Simulator/SimulatedDevice.h>
#include <Simulator/SimulatedLink.h>
#include <Simulator/SimulatedPeripheral.h>
#include <TandrellCore/Platform/CentralManager.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tandrell {

class SimulatedRadio;

/// A central manager on a simulated radio. Owned by the application; the radio holds it weakly.
/// Letting go of it, like `SimulatedRadio::restartCentral`, is the end of its process: nothing is
/// delivered afterwards, and its connections close unless it has a restore identifier.
///
/// `state()` and `isScanning()` follow what the delegate was told and may be read from any thread.
/// The scan and the peripherals live on the radio's queue.
class SimulatedCentral final : public CentralManager,
                               public std::enable_shared_from_this<SimulatedCentral> {
 public:
  SimulatedCentral(std::weak_ptr<SimulatedRadio> radio, RadioTimelinePtr timeline,
                   std::weak_ptr<CentralManagerDelegate> delegate, QueuePtr queue,
                   std::optional<std::string> restoreIdentifier);
  ~SimulatedCentral() override;

  CentralManagerState state() const override { return state_; }
  bool isScanning() const override { return isScanning_; }
  void setDelegate(std::weak_ptr<CentralManagerDelegate> delegate) override;
  /// With an empty list: whatever advertises. Each device is reported once in a scan. Without the
  /// radio powered on nothing happens.
  void scanForPeripherals(std::span<const Uuid> services) override;
  void stopScan() override;
  /// Fails at once when the radio is not powered on.
  void connect(const PeripheralPtr& peripheral) override;
  void cancelConnection(const PeripheralPtr& peripheral) override;

  // For the radio and its links, on the radio's queue.
  using Deliver = std::function<void(CentralManagerDelegate&)>;

  void announceState(CentralManagerState state);
  void announceRestored(const std::vector<SimulatedLinkPtr>& links);
  /// Reports the device after its next advertisement if a scan is looking for it.
  void listenTo(const SimulatedDevicePtr& device);
  /// Calls the delegate on the central's queue, after everything delivered before.
  void tell(Deliver deliver);
  /// Runs the block on the central's queue, unless the process has ended by then.
  void deliver(Work work);
  /// The peripheral of a device: the same object for as long as anybody holds it.
  std::shared_ptr<SimulatedPeripheral> peripheralFor(const Uuid& identifier);
  const std::optional<std::string>& restoreIdentifier() const { return restoreIdentifier_; }
  void endProcess() { ended_ = true; }
  bool hasEnded() const { return ended_; }

 private:
  bool isLookingFor(const SimulatedDevice& device) const;
  void report(const SimulatedDevice& device);

  const std::weak_ptr<SimulatedRadio> radio_;
  const RadioTimelinePtr timeline_;
  const QueuePtr queue_;
  const std::optional<std::string> restoreIdentifier_;

  mutable std::mutex delegateMutex_;
  std::weak_ptr<CentralManagerDelegate> delegate_;
  std::atomic<CentralManagerState> state_ = CentralManagerState::unknown;
  std::atomic<bool> isScanning_ = false;
  std::atomic<bool> ended_ = false;

  CentralManagerState announced_ = CentralManagerState::unknown;
  std::optional<std::vector<Uuid>> scan_;  // the services looked for; absent while not scanning
  std::set<Uuid> reported_;
  std::map<Uuid, std::weak_ptr<SimulatedPeripheral>> peripherals_;
};

}  // namespace tandrell
