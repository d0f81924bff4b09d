#pragma once

#include <Simulator/RadioTimeline.h>
#include <Simulator/SimulatedDevice.h>
#include <Simulator/SimulatedLink.h>
#include <TandrellCore/Platform/CentralManager.h>
#include <TandrellCore/Platform/Export.h>

#include <memory>
#include <string_view>
#include <vector>

namespace tandrell {

class SimulatedCentral;

/// Why a connection attempt failed.
enum class SimulatedRadioError { notPoweredOn, connectionFailed, unknownDevice };
constexpr std::string_view errorDomain(SimulatedRadioError) { return "SimulatedRadioError"; }
TANDRELL_API std::string_view errorText(SimulatedRadioError error);

/// A Bluetooth radio without hardware: makes central managers that find, connect and talk to the
/// devices that were added to it. It runs on any dispatcher: under virtual time a run is repeated
/// exactly, on the system's dispatcher it keeps real time.
///
/// All public operations may be called from any thread and return at once; they take effect in
/// order, on the radio's own serial queue. It owns its devices and connections; central managers
/// belong to whoever made them and may outlive it, in silence. Nothing polls: an idle world has no
/// timer.
class TANDRELL_API SimulatedRadio final : public CentralManagerFactory,
                                          public DeviceRadio,
                                          public std::enable_shared_from_this<SimulatedRadio> {
 public:
  /// Makes a radio that is powered on, with its queue on the dispatcher, which it holds weakly.
  static std::shared_ptr<SimulatedRadio> make(const std::shared_ptr<Dispatcher>& dispatcher,
                                              const SimulatedRadioOptions& options = {});

  /// The manager's state is unknown until it has learned the radio's, `stateDelay` later. If
  /// connections were kept under its restore identifier it is first handed these.
  std::shared_ptr<CentralManager> makeCentralManager(std::weak_ptr<CentralManagerDelegate> delegate,
                                                     QueuePtr queue,
                                                     const CentralManagerOptions& options) override;

  /// The radio is powered on until told otherwise. In every other state there are no scans, no
  /// attempts (they fail) and no connections (they drop); all that is reported before the state.
  void setState(CentralManagerState state);

  /// The process that uses the radio dies: its central managers hear nothing more. Connections of
  /// those that have a restore identifier stay, with their subscriptions; the next manager with
  /// that identifier receives them and what the devices sent meanwhile. The others close.
  void restartCentral();

  // For devices.
  void add(SimulatedDevicePtr device) override;
  const RadioTimelinePtr& timeline() const override { return timeline_; }
  /// Scans and attempts that wait for the device go on.
  void deviceChanged(const SimulatedDevice& device) override;

  // For links and central managers, on the radio's queue.
  bool isPoweredOn() const { return state_ == CentralManagerState::poweredOn; }
  void connect(const std::shared_ptr<SimulatedCentral>& central, const PeripheralPtr& peripheral);
  void cancelConnection(const SimulatedCentral& central, const Uuid& identifier);
  void startListening(SimulatedCentral& central);
  void linkEnded(const SimulatedLink& link);
  /// Closes the links whose central is gone for good.
  void closeOrphans();

 private:
  SimulatedRadio(const std::shared_ptr<Dispatcher>& dispatcher,
                 const SimulatedRadioOptions& options);

  void take(const std::shared_ptr<SimulatedCentral>& central);
  void restoreLinks(const std::shared_ptr<SimulatedCentral>& central);
  void changeState(CentralManagerState state);
  void attempt(const SimulatedLinkPtr& link);
  SimulatedLinkPtr linkOf(const SimulatedCentral& central, const Uuid& identifier) const;
  SimulatedDevicePtr deviceWith(const Uuid& identifier) const;
  std::vector<std::shared_ptr<SimulatedCentral>> centrals() const;

  const RadioTimelinePtr timeline_;
  CentralManagerState state_ = CentralManagerState::poweredOn;
  std::vector<SimulatedDevicePtr> devices_;
  std::vector<SimulatedLinkPtr> links_;
  std::vector<std::weak_ptr<SimulatedCentral>> centrals_;
};

}  // namespace tandrell
