#include <TandrellCore/Proto/Payload.pb.h>
#include <Tests/CommandLine/VirtualMachine.h>

#include <gmock/gmock.h>

namespace tandrell {
namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;

/// What the device took for transmission, read as this message.
template <class Message>
Message taken(const VirtualMachine& machine, PackageType::Type type) {
  const auto parcels = machine.link->device()->records().parcels;
  EXPECT_EQ(parcels.size(), 1u);
  Message message;
  if (parcels.empty()) return message;
  EXPECT_EQ(parcels[0].parcel.package().type(), type);
  EXPECT_TRUE(message.ParseFromString(parcels[0].parcel.package().data()));
  return message;
}

TEST(SosTests, RaisesAndCancelsAndWaitsForTheDelivery) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run({"--json", "sos", "raise", "--at", "46.5586", "-8.5614"}), 0);
  auto sos = taken<SosMessageDto>(machine, PackageType::sosMessage);
  EXPECT_EQ(sos.type(), SosMessageType::alarm);
  EXPECT_EQ(sos.latitude(), 465'586'000);
  EXPECT_EQ(sos.longitude(), -85'614'000);
  EXPECT_EQ(sos.timestamp(), 1'700'000'000u);
  EXPECT_THAT(machine.story(), IsSupersetOf({"status delivered", "received", "done"}));

  EXPECT_EQ(machine.run({"--json", "sos", "cancel"}), 0);
  sos = taken<SosMessageDto>(machine, PackageType::sosMessage);
  EXPECT_EQ(sos.type(), SosMessageType::cancel);
  EXPECT_EQ(sos.gpsfix(), "none");
}

TEST(TrackTests, SendsEveryChangeAndPlace) {
  VirtualMachine machine;
  const auto session = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--json", "track"});
    EXPECT_EQ(machine.run(arguments), 0) << machine.errors;
    return taken<TrackingSessionDto>(machine, PackageType::trackingSession);
  };
  const auto start =
      session({"start", "anna@example.org", "020 7946 0018", "--at", "-46.5", "180"});
  EXPECT_EQ(start.event(), TrackingSessionEvent::enable);
  ASSERT_EQ(start.viewerstoadd_size(), 2);
  EXPECT_EQ(start.viewerstoadd(0).email(), "anna@example.org");
  EXPECT_EQ(start.viewerstoadd(1).phonenumber(), "+442079460018");
  EXPECT_EQ(start.longitude(), 1'800'000'000);
  EXPECT_EQ(session({"stop"}).event(), TrackingSessionEvent::disable);
  const auto removal = session({"remove", "anna@example.org"});
  EXPECT_EQ(removal.viewerstoremove_size(), 1);
  EXPECT_EQ(removal.viewerstoadd_size(), 0);
  EXPECT_EQ(removal.event(), TrackingSessionEvent::none);

  EXPECT_EQ(machine.run({"track", "fix", "46.5", "8.25"}), 0);
  EXPECT_EQ(taken<TrackingLocationDto>(machine, PackageType::trackingLocation).longitude(),
            82'500'000);
}

TEST(ForecastTests, ShowsATableOrTheData) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run({"forecast", "46.5", "8.5"}), 0);
  EXPECT_EQ(taken<ForecastRequest>(machine, PackageType::forecastRequest).latitude(), 46.5f);
  EXPECT_THAT(machine.out, HasSubstr("sunrise 07:12, sunset 16:41, reference temperature -3\n"));
  EXPECT_THAT(machine.out, HasSubstr("  tuesday    +0       2    11     0 %  clearDay\n"));

  EXPECT_EQ(machine.run({"--json", "forecast", "46.5", "8.5"}), 0);
  const auto forecast = machine.events("forecast").at(0);
  EXPECT_EQ(forecast.at("daily").size(), 3u);
  EXPECT_EQ(forecast.at("hourly").at(5).at("hourOfDay"), 3);
  EXPECT_EQ(forecast.at("referenceTemp"), -3);

  CommunicatorOptions slow;
  slow.answerDelay = std::chrono::minutes(10);
  VirtualMachine waiting(slow);
  EXPECT_EQ(waiting.run({"forecast", "46.5", "8.5"}), 3);
  EXPECT_THAT(waiting.out, HasSubstr("is delivered, but no forecast arrived in time"));
}

TEST(StatusTests, TellsWhatIsKnown) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run({"--json", "status"}), 0);
  const auto device = machine.events("device").at(0);
  EXPECT_EQ(device.at("imei"), "300000000000001");
  EXPECT_EQ(device.at("quality"), 4);
  EXPECT_EQ(device.at("settings").at("trackingInterval"), 600);

  CommunicatorOptions options;
  options.reportsOnSubscription = false;
  VirtualMachine silent(options);
  silent.prepare = [](SimLink& link) {
    link.radio()->timeline()->after(std::chrono::seconds(5), std::weak_ptr(link.device()),
                                    [](auto& self) {
                                      self.reportBattery(55);
                                      self.sleepFor(std::chrono::minutes(2));
                                    });
  };
  EXPECT_EQ(silent.run({"--json", "status"}), 3);
  EXPECT_EQ(silent.events("device").at(0).at("battery"), 55);
  EXPECT_TRUE(silent.events("device").at(0).at("imei").is_null());
  EXPECT_NEAR(silent.events("device").at(0).at("wakeDate"), 1'700'000'125, 1);
}

TEST(SettingsTests, AreShownAndChangedOnceTheDeviceConfirms) {
  VirtualMachine machine;
  EXPECT_EQ(machine.run({"--json", "settings", "get"}), 0);
  EXPECT_THAT(machine.story(), IsSupersetOf({"settings {trackingInterval:600}"}));
  EXPECT_EQ(machine.run({"--json", "settings", "set", "--tracking-interval", "300"}), 0);
  EXPECT_EQ(machine.outcome(), "confirmed");
  EXPECT_EQ(machine.link->device()->records().settings.at(0).trackinginterval(), 300u);

  CommunicatorOptions options;
  options.faults.refuseWrite(1, CentralError::uuidNotAllowed);
  VirtualMachine refusing(options);
  EXPECT_EQ(refusing.run({"settings", "set", "--tracking-interval", "300"}), 1);
  EXPECT_THAT(refusing.out, HasSubstr("cannot set: "));
}

}  // namespace
}  // namespace tandrell
