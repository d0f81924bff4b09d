#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>
#include <Simulator/VirtualTime.h>
#include <Tests/Contracts/CentralContract.h>

namespace tandrell {
namespace {

class SimulatedCentralWorld final : public CentralWorld {
 public:
  explicit SimulatedCentralWorld(std::optional<std::uint32_t> seed)
      : time_(VirtualTime::make({.seed = seed})) {}
  ~SimulatedCentralWorld() override { time_->runDue(); }

  std::shared_ptr<Listener> begin(std::optional<std::string> restoreIdentifier) override {
    return Listener::make(*time_, *radio_, std::move(restoreIdentifier), [this](const auto& done) {
      time_->runUntil(done, std::chrono::seconds(20));
    });
  }
  void kill(std::shared_ptr<Listener>& application) override {
    application.reset();
    radio_->restartCentral();
    time_->runDue();
  }
  void setRadio(bool on) override {
    radio_->setState(on ? CentralManagerState::poweredOn : CentralManagerState::poweredOff);
  }
  void setInRange(bool inRange) override { device_->setInRange(inRange); }
  void notify(Data value) override { device_->sendRaw(std::move(value)); }
  Data written() override { return device_->records().written(); }

 private:
  const std::shared_ptr<VirtualTime> time_;
  const std::shared_ptr<SimulatedRadio> radio_ = SimulatedRadio::make(time_);
  const std::shared_ptr<SimulatedCommunicator> device_ =
      SimulatedCommunicator::make(radio_, {.reportsOnSubscription = false});
};

INSTANTIATE_TEST_SUITE_P(
    SimulatedRadio, CentralContract,
    testing::Values(
        CentralWorldKind{"posted",
                         [] { return std::make_unique<SimulatedCentralWorld>(std::nullopt); }},
        CentralWorldKind{"seed1", [] { return std::make_unique<SimulatedCentralWorld>(1); }},
        CentralWorldKind{"seed2", [] { return std::make_unique<SimulatedCentralWorld>(2); }}));

}  // namespace
}  // namespace tandrell
