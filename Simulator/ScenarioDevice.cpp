#include <Simulator/ScenarioDevice.h>
#include <Simulator/SimulatedCommunicator.h>

#include <utility>

namespace tandrell {
namespace {

constexpr std::uint32_t longestInterval = 7 * 24 * 3600;
constexpr std::uint32_t mostCounted = 1'000'000;
constexpr std::uint32_t longestNotification = 512;

/// What a phone without a valid bond meets.
const Error notAuthenticated{"CBATTErrorDomain", 5, "insufficientAuthentication"};

using Words = ScenarioWords;
using Options = CommunicatorOptions;
using Device = SimulatedCommunicator;

bool readSwitch(Words& words, std::string_view on, std::string_view off) {
  return words.choice<bool>({{on, true}, {off, false}});
}

std::uint32_t readPercentage(Words& words) { return words.number("a percentage", 0, 100); }
std::uint32_t readQuality(Words& words) { return words.number("a quality", 0, 100); }
std::uint32_t readCount(Words& words, std::string_view what) {
  return words.number(what, 1, mostCounted);
}

Reception readReception(Words& words) {
  return words.choice<Reception>({{"available", Reception::available},
                                  {"lost", Reception::lost},
                                  {"silent", Reception::silent}});
}

using ReadOption = void (*)(Words&, Options&);

const Words::Choices<ReadOption>& deviceOptions() {
  static const Words::Choices<ReadOption> options = {
      {"name", [](Words& w, Options& o) { o.name = w.text("a name in quotes"); }},
      {"imei", [](Words& w, Options& o) { o.imei = w.word("an identity"); }},
      {"firmware", [](Words& w, Options& o) { o.firmwareVersion = w.word("a version"); }},
      {"battery", [](Words& w, Options& o) { o.battery = readPercentage(w); }},
      {"quality", [](Words& w, Options& o) { o.quality = readQuality(w); }},
      {"tracking", [](Words& w, Options& o) { o.trackingOn = readSwitch(w, "on", "off"); }},
      {"interval",
       [](Words& w, Options& o) { o.trackingInterval = w.number("seconds", 1, longestInterval); }},
      {"power", [](Words& w, Options& o) { o.poweredOn = readSwitch(w, "on", "off"); }},
      {"range", [](Words& w, Options& o) { o.inRange = readSwitch(w, "in", "out"); }},
      {"advertising", [](Words& w, Options& o) { o.advertising = readSwitch(w, "on", "off"); }},
      {"rssi", [](Words& w, Options& o) { o.rssi = w.signedNumber("dBm", -127, 20); }},
      {"greeting",
       [](Words& w, Options& o) { o.reportsOnSubscription = readSwitch(w, "on", "off"); }},
      {"echo", [](Words& w, Options& o) { o.echoesPackage = readSwitch(w, "on", "off"); }},
      {"memory",
       [](Words& w, Options& o) { o.keepsParcelsOverReboot = readSwitch(w, "kept", "lost"); }},
      {"notifications",
       [](Words& w, Options& o) {
         o.notificationSize = w.number("bytes", 1, longestNotification);
       }},
      {"boot", [](Words& w, Options& o) { o.rebootDuration = w.duration(); }},
      {"reception", [](Words& w, Options& o) { o.reception = readReception(w); }},
      {"answer", [](Words& w, Options& o) { o.answerDelay = w.duration(); }},
      {"reply", [](Words& w, Options& o) { o.reply = w.text("a text in quotes"); }},
  };
  return options;
}

using ReadFault = void (*)(Words&, FaultPlan&);

std::uint32_t readAtByte(Words& words) {
  words.expect("at");
  words.expect("byte");
  return readCount(words, "the number of a byte");
}

/// "write 3": the n-th of the things that are counted.
std::uint32_t readNumbered(Words& words, std::string_view thing) {
  words.expect(thing);
  return readCount(words, "its number");
}

void readDrop(Words& words, FaultPlan& plan) {
  const auto byte = readAtByte(words);
  plan.dropAtByte(byte, words.accept("answered") ? CutWrite::answered : CutWrite::unanswered);
}

void readRefusal(Words& words, FaultPlan& plan) {
  if (words.accept("subscription")) {
    plan.refuseSubscription(readCount(words, "its number"), notAuthenticated);
    return;
  }
  const auto number = readNumbered(words, "write");
  plan.refuseWrite(
      number, words.choice<CentralError>({{"disconnected", CentralError::peripheralDisconnected},
                                          {"expired", CentralError::uuidNotAllowed}}));
}

void readHold(Words& words, FaultPlan& plan) {
  const auto number = readNumbered(words, "completion");
  plan.holdCompletion(number, words.duration());
}

void readGarbage(Words& words, FaultPlan& plan) {
  words.expect("before");
  const auto number = readNumbered(words, "frame");
  if (words.atEnd()) {
    plan.garbageBeforeFrame(number);
  } else {
    plan.garbageBeforeFrame(number, words.bytes());
  }
}

void readSleepFault(Words& words, FaultPlan& plan) {
  words.expect("at");
  const auto number = readNumbered(words, "parcel");
  plan.sleepAtParcel(number, words.wholeSeconds());
}

void readSlowSatellite(Words& words, FaultPlan& plan) {
  const auto number = readNumbered(words, "parcel");
  plan.slowSatellite(number, words.duration());
}

void readSeed(Words& words, FaultPlan& plan) {
  plan.add(FaultPlan::fromSeed(words.number("a seed", 0, 0xffff'ffff)));
}

const Words::Choices<ReadFault>& faults() {
  static const Words::Choices<ReadFault> faults = {
      {"drop", readDrop},
      {"reboot", [](Words& w, FaultPlan& p) { p.rebootAtByte(readAtByte(w)); }},
      {"refuse", readRefusal},
      {"lose", [](Words& w, FaultPlan& p) { p.loseCompletion(readNumbered(w, "completion")); }},
      {"hold", readHold},
      {"fail", [](Words& w, FaultPlan& p) { p.failConnect(readNumbered(w, "connect")); }},
      {"cut",
       [](Words& w, FaultPlan& p) {
         w.expect("notifications");
         p.cutNotifications(w.number("bytes", 1, longestNotification));
       }},
      {"join",
       [](Words& w, FaultPlan& p) {
         w.expect("notifications");
         p.joinNotifications();
       }},
      {"garbage", readGarbage},
      {"sleep", readSleepFault},
      {"slow", readSlowSatellite},
      {"seed", readSeed},
  };
  return faults;
}

using ReadAction = DeviceAction (*)(Words&);

DeviceAction readReport(Words& words) {
  return words.choice<DeviceAction>({{"info", {[](Device& d) { d.reportInfo(); }}},
                                     {"settings", {[](Device& d) { d.reportSettings(); }}}});
}

DeviceAction readLog(Words& words) {
  const auto level = words.choice<LogCommandLevel::Type>({{"trace", LogCommandLevel::trace},
                                                          {"debug", LogCommandLevel::debug},
                                                          {"info", LogCommandLevel::info},
                                                          {"warn", LogCommandLevel::warn},
                                                          {"error", LogCommandLevel::error}});
  return {[level, text = words.text("a log line in quotes")](Device& d) { d.log(level, text); }};
}

DeviceAction readMessage(Words& words) {
  words.expect("from");
  const auto from = words.word("a phone number or an e-mail address");
  MessageDto message;
  (from.find('@') == std::string::npos ? *message.mutable_phonenumber()
                                       : *message.mutable_email()) = from;
  message.set_content(words.text("a message in quotes"));
  return {[message](Device& d) { d.sendMessage(message); }};
}

/// An action of a device with the value that is read for it.
template <class Value>
DeviceAction actionWith(Value value, void (Device::*operation)(Value)) {
  return {[value, operation](Device& d) { (d.*operation)(value); }};
}

const Words::Choices<ReadAction>& deviceActions() {
  static const Words::Choices<ReadAction> actions = {
      {"power",
       [](Words& w) {
         return w.choice<DeviceAction>({{"on", {[](Device& d) { d.powerOn(); }}},
                                        {"off", {[](Device& d) { d.powerOff(); }}}});
       }},
      {"reboot", [](Words&) { return DeviceAction{[](Device& d) { d.reboot(); }}; }},
      {"range",
       [](Words& w) { return actionWith(readSwitch(w, "in", "out"), &Device::setInRange); }},
      {"advertising",
       [](Words& w) { return actionWith(readSwitch(w, "on", "off"), &Device::setAdvertising); }},
      {"drop", [](Words&) { return DeviceAction{[](Device& d) { d.dropLink(); }}; }},
      {"sleep", [](Words& w) { return actionWith(w.wholeSeconds(), &Device::sleepFor); }},
      {"wake", [](Words&) { return DeviceAction{[](Device& d) { d.wake(); }}; }},
      {"reception", [](Words& w) { return actionWith(readReception(w), &Device::setReception); }},
      {"tracking",
       [](Words& w) { return actionWith(readSwitch(w, "on", "off"), &Device::setTracking); }},
      {"battery", [](Words& w) { return actionWith(readPercentage(w), &Device::reportBattery); }},
      {"quality", [](Words& w) { return actionWith(readQuality(w), &Device::reportQuality); }},
      {"report", readReport},
      {"log", readLog},
      {"message", readMessage},
      {"forecast", [](Words&) { return DeviceAction{[](Device& d) { d.sendForecast(); }}; }},
      {"raw", [](Words& w) { return actionWith<Data>(w.bytes(), &Device::sendRaw); }},
  };
  return actions;
}

}  // namespace

void readDeviceOption(ScenarioWords& words, CommunicatorOptions& options) {
  if (const auto read = words.choice(deviceOptions())) read(words, options);
}

void readSatellite(ScenarioWords& words, SatelliteTiming& timing) {
  const Words::Choices<Duration SatelliteTiming::*> delays = {
      {"connect", &SatelliteTiming::connectDelay},
      {"send", &SatelliteTiming::sendDelay},
      {"deliver", &SatelliteTiming::deliverDelay},
      {"giveup", &SatelliteTiming::giveUpDelay}};
  do {
    if (const auto delay = words.choice(delays)) timing.*delay = words.duration();
  } while (!words.problem() && !words.atEnd());
}

void readFault(ScenarioWords& words, FaultPlan& plan) {
  if (const auto read = words.choice(faults())) read(words, plan);
}

DeviceAction readDeviceAction(ScenarioWords& words) {
  const auto read = words.choice(deviceActions());
  return read ? read(words) : DeviceAction();
}

}  // namespace tandrell
