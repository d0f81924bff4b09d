#pragma once

#include <CommandLine/Command.h>
#include <CommandLine/ScenarioBook.h>
#include <CommandLine/ScenarioPhone.h>
#include <Simulator/ScenarioPlayer.h>
#include <Simulator/SimulatedCommunicator.h>
#include <Simulator/SimulatedRadio.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tandrell {

/// Runs a scenario between a phone with this library and a simulated communicator, in the time of
/// its environment, tells what happens, and compares what became of everything that was sent with
/// what the scenario expects. Lives on the main queue; its store is in memory.
class ScenarioRun final : public Run,
                          private ScenarioPhone::Listener,
                          public std::enable_shared_from_this<ScenarioRun> {
 public:
  /// What it is given. The output outlives the run; store and radio of the environment are not
  /// used. `finished` is called once, on the main queue.
  struct Parts {
    Environment environment;
    Output& output;
    std::string file;  ///< for messages
    Scenario scenario;
    std::function<void(ExitStatus)> finished;
  };

  explicit ScenarioRun(Parts parts);

  void start() override;
  void interrupt() override { finish(true); }

 private:
  using Fields = Output::Fields;

  void didChange(const Moment& at, const std::string& type, const Fields& value) override;
  void didReceive(const Moment& at, const ::Parcel& parcel) override;
  void didProgress(const Moment& at, const BleWriteProgress& progress) override;
  void didWrite(const Moment& at, std::uint32_t parcelId) override;
  void didReject(const Moment& at, std::uint32_t parcelId, const Error& error) override;
  void didFail(const Moment& at, const std::string& what, const Error& error) override;

  void startTimers();
  void perform(const ScenarioStatement& statement);
  void control(PhoneControl control);
  void startPhone();
  void send(const ScenarioStatement& statement, const PhoneSend& send);
  void didReceiveInbound(const Moment& at, const ::Parcel& parcel);
  void considerEnd();
  void finish(bool interrupted = false);
  void end();
  bool tellOutcomes(const Moment& at);
  template <class Row>
  void tellSend(const Moment& at, const ScenarioSend& send, Row row);
  bool tellUnmet(const Moment& at);
  bool isExpected(const std::string& label) const;

  Moment now() const { return Moment::now(environment_); }
  void tell(const Moment& at, const std::string& who, std::string_view type, const Fields& fields,
            const std::string& text);
  void after(Duration delay, void (ScenarioRun::*step)());
  void didReachLimit() { finish(); }

  const Parts parts_;
  const std::shared_ptr<SimulatedRadio> radio_;
  const std::shared_ptr<SimulatedCommunicator> device_;
  const Environment environment_;
  std::shared_ptr<ScenarioPlayer> player_;
  std::shared_ptr<ScenarioPhone> phone_;
  ScenarioBook book_;
  std::optional<BleWriteProgress> progress_;  // the last chunk's
  std::optional<Duration> writeBegin_;        // the first chunk's of the write under way
  bool lingering_ = false;
  bool finishing_ = false;
  bool interrupted_ = false;
  bool over_ = false;
};

}  // namespace tandrell
