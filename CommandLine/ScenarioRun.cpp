#include <CommandLine/ParcelLines.h>
#include <CommandLine/ScenarioLines.h>
#include <CommandLine/ScenarioRun.h>
#include <Simulator/MemoryUserDefaults.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Overloaded.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

/// From the last outcome to the end: an answer may be on its way.
constexpr std::chrono::seconds lingerTime{4};
/// How long the run waits for the end of the connection before it ends without.
constexpr std::chrono::seconds partingLimit{2};

Environment withRadio(Environment environment, const std::shared_ptr<SimulatedRadio>& radio) {
  environment.userDefaults = std::make_shared<MemoryUserDefaults>();
  environment.centralManagers = radio;
  return environment;
}

ScenarioOutcome outcomeOf(const ScenarioSend& send) {
  return send.outcome.value_or(ScenarioOutcome::undecided);
}

}  // namespace

ScenarioRun::ScenarioRun(Parts parts)
    : parts_(std::move(parts)),
      radio_(SimulatedRadio::make(parts_.environment.dispatcher)),
      device_(SimulatedCommunicator::make(radio_, parts_.scenario.device)),
      environment_(withRadio(parts_.environment, radio_)) {}

void ScenarioRun::start() {
  const auto at = now();
  parts_.output.startAt(at.time);
  tell(at, "", "scenario", {{"file", parts_.file}, {"title", parts_.scenario.title}},
       parts_.scenario.title.empty() ? parts_.file : parts_.scenario.title);
  startPhone();
  player_ = ScenarioPlayer::play(environment_.dispatcher, parts_.scenario,
                                 [this](const auto& statement) { perform(statement); });
  startTimers();
  considerEnd();
}

void ScenarioRun::startTimers() {
  after(limitOf(parts_.scenario), &ScenarioRun::didReachLimit);
}

void ScenarioRun::startPhone() { phone_ = ScenarioPhone::start(environment_, *this); }

void ScenarioRun::perform(const ScenarioStatement& statement) {
  if (finishing_) return;
  if (const auto* some = std::get_if<PhoneSend>(&statement.action)) return send(statement, *some);
  const auto side = sideOf(statement);
  const auto text = textOf(statement);
  tell(now(), side, "statement", {{"line", statement.line}, {"side", side}, {"text", text}}, text);
  tandrell::perform(statement, *device_);
  std::visit(Overloaded{[this](const RadioAction& action) { radio_->setState(action.state); },
                        [this](PhoneControl action) { control(action); },
                        [this](const PhoneSettings& settings) {
                          phone_->updateSettings(settings.trackingInterval);
                        },
                        [](const auto&) {}},
             statement.action);
  considerEnd();
}

void ScenarioRun::control(PhoneControl control) {
  if (control == PhoneControl::connect) return phone_->connect();
  if (control == PhoneControl::disconnect) return phone_->disconnect();
  phone_.reset();
  radio_->restartCentral();
  progress_.reset();
  startPhone();
}

void ScenarioRun::send(const ScenarioStatement& statement, const PhoneSend& send) {
  // Made now, so that the time in it is that of the sending; that it can be made was checked.
  const auto payload =
      makeScenarioPayload(send.content, environment_, environment_.random->next()).value();
  const auto at = now();
  const auto bytes = prepareForWrite(payload->toParcel()).size();
  const auto what = describe(send.content);
  tell(at, "phone", "sending",
       {{"line", statement.line},
        {"label", send.label},
        {"what", what},
        {"parcelId", payload->parcelId()},
        {"packageType", nameOf(payload->packageType())},
        {"payloadBytes", payload->serializedData().size()},
        {"frameBytes", bytes},
        {"chunks", chunkCount(bytes)}},
       textOf(statement));
  book_.add({statement.line, send.label, what, payload, at.time});
  phone_->send(payload);
}

void ScenarioRun::didChange(const Moment& at, const std::string& type, const Fields& value) {
  const auto text =
      type == "wakeDate"
          ? fmt::format("wakes in {:.0f} s", value.get<double>() - at.date.timeIntervalSince1970())
          : type + ": " + Output::readable(value);
  tell(at, "link", type, {{"value", value}}, text);
  // A write that was cut off is not made again any more.
  if (type == "connection" && value == "disconnected") progress_.reset();
  if (finishing_ && phone_->isDisconnected()) end();
}

void ScenarioRun::didReceive(const Moment& at, const ::Parcel& parcel) {
  if (finishing_) return;  // what the end of the connection brings is not the scenario's
  if (parcel.status() == ParcelStatus::none) return didReceiveInbound(at, parcel);
  const auto* send = book_.find(parcel.id());
  if (!send) return;
  const auto name = nameOf(parcel.status());
  tell(at, "link", "status", {{"label", send->label}, {"parcelId", parcel.id()}, {"value", name}},
       send->label + ": " + name);
  book_.didReport(at, parcel, device_->records());
  considerEnd();
}

void ScenarioRun::didReceiveInbound(const Moment& at, const ::Parcel& parcel) {
  if (parcel.package().type() != PackageType::message) {
    const auto type = nameOf(parcel.package().type());
    return tell(at, "link", "parcel", {{"parcelId", parcel.id()}, {"packageType", type}},
                type + " came in");
  }
  const auto [fields, text] = messageLine(parcel);
  tell(at, "link", "message", fields, text);
}

void ScenarioRun::didProgress(const Moment& at, const BleWriteProgress& progress) {
  const bool begins = !progress_ || progress_->bytesAcknowledged == progress_->byteCount ||
                      progress.bytesAcknowledged <= progress_->bytesAcknowledged;
  const bool again = begins && progress_ && progress_->bytesAcknowledged < progress_->byteCount;
  if (again) {
    tell(at, "link", "again",
         {{"bytes", progress_->bytesAcknowledged}, {"of", progress_->byteCount}},
         fmt::format("writes from the beginning again; {} of {} bytes had been written",
                     progress_->bytesAcknowledged, progress_->byteCount));
  }
  if (begins) writeBegin_ = at.time;
  progress_ = progress;
}

void ScenarioRun::didWrite(const Moment& at, std::uint32_t parcelId) {
  const auto* send = book_.find(parcelId);
  if (!send || !writeBegin_ || !progress_) return;
  const auto taken = at.time - *writeBegin_;
  const auto bytes = progress_->byteCount;
  tell(at, "link", "written",
       {{"label", send->label},
        {"bytes", bytes},
        {"chunks", chunkCount(bytes)},
        {"seconds", toSeconds(taken)}},
       fmt::format("{}: written, {} bytes in {} chunks", send->label, bytes, chunkCount(bytes)));
}

void ScenarioRun::didReject(const Moment& at, std::uint32_t parcelId, const Error& error) {
  const auto* send = book_.find(parcelId);
  if (!send || finishing_) return;
  tell(at, "link", "rejected", {{"label", send->label}, {"error", error.description()}},
       fmt::format("{}: rejected, {}", send->label, error.description()));
  book_.didReject(at, parcelId, error, device_->records());
  considerEnd();
}

void ScenarioRun::didFail(const Moment& at, const std::string& what, const Error& error) {
  tell(at, "link", "failure", {{"what", what}, {"error", error.description()}},
       what + ": " + error.description());
}

void ScenarioRun::considerEnd() {
  if (parts_.scenario.end || lingering_ || finishing_) return;
  if (!player_->isDone() || !book_.isEverythingDecided()) return;
  lingering_ = true;
  after(lingerTime, &ScenarioRun::didReachLimit);
}

void ScenarioRun::finish(bool interrupted) {
  if (finishing_ || over_) return;
  finishing_ = true;
  interrupted_ = interrupted;
  if (phone_->isDisconnected()) return end();
  tell(now(), "", "ending", Fields::object(), "the end; the phone disconnects");
  phone_->disconnect();
  after(partingLimit, &ScenarioRun::end);
}

void ScenarioRun::end() {
  if (std::exchange(over_, true)) return;
  const auto at = now();
  const bool good = tellOutcomes(at);
  phone_.reset();
  player_.reset();
  const auto status = interrupted_ ? ExitStatus::interrupted
                      : good       ? ExitStatus::done
                                   : ExitStatus::failed;
  const auto outcome = interrupted_ ? "interrupted" : good ? "asExpected" : "unexpected";
  const auto text = interrupted_ ? "interrupted" : good ? "all as expected" : "not as expected";
  parts_.output.done(at, static_cast<int>(status), outcome, text);
  parts_.finished(status);
}

bool ScenarioRun::tellOutcomes(const Moment& at) {
  std::size_t label = 5;
  std::size_t what = 4;
  for (const auto& send : book_.sends()) {
    label = std::max(label, send.label.size());
    what = std::max(what, send.what.size());
  }
  const auto row = [=](const auto& a, const auto& b, std::string_view c, std::string_view d) {
    return fmt::format("{:<{}}  {:<{}}  {:<9}  {:>8}", a, label, b, what, std::string(c),
                       std::string(d));
  };
  const auto count = book_.sends().size();
  parts_.output.block(
      at, "summary", {{"sends", count}},
      {"", count == 0 ? "nothing was sent" : row("label", "what", "outcome", "after")});
  for (const auto& send : book_.sends()) tellSend(at, send, row);
  return interrupted_ || tellUnmet(at);
}

template <class Row>
void ScenarioRun::tellSend(const Moment& at, const ScenarioSend& send, Row row) {
  const auto name = nameOf(outcomeOf(send));
  const auto taken = toSeconds(send.decided - send.sent);
  const auto records = device_->records();
  const bool atDevice = std::any_of(
      records.parcels.begin(), records.parcels.end(),
      [&](const auto& received) { return received.parcel.id() == send.payload->parcelId(); });
  auto note = send.note;
  const bool failed = outcomeOf(send) == ScenarioOutcome::failed;
  if (atDevice && failed) note += "; the device had taken it in";
  parts_.output.block(
      at, "outcome",
      {{"label", send.label},
       {"what", send.what},
       {"outcome", name},
       {"seconds", send.outcome ? Fields(taken) : Fields(nullptr)},
       {"atDevice", atDevice},
       {"note", note}},
      {row(send.label, send.what, name, send.outcome ? fmt::format("{:.1f} s", taken) : "-") +
       (note.empty() ? "" : "  " + note)});
}

bool ScenarioRun::tellUnmet(const Moment& at) {
  bool good = true;
  const auto tell = [&](std::size_t line, const std::string& label, const std::string& text) {
    good = false;
    parts_.output.block(at, "unmet", {{"line", line}, {"label", label}, {"text", text}},
                        {fmt::format("{}:{}: {}", parts_.file, line, text)});
  };
  for (const auto& [line, label, wanted] : parts_.scenario.expectations) {
    const auto* send = book_.find(label);
    const auto outcome = send ? nameOf(outcomeOf(*send)) : "not sent";
    if (send && outcomeOf(*send) == wanted) continue;
    tell(line, label,
         fmt::format("expected {} to be {}, but it is {}", label, std::string(nameOf(wanted)),
                     std::string(outcome)));
  }
  for (const auto& send : book_.sends()) {
    const auto outcome = outcomeOf(send);
    if (outcome == ScenarioOutcome::delivered || isExpected(send.label)) continue;
    tell(send.line, send.label,
         fmt::format("{} is {}, and nothing is expected of it", send.label,
                     std::string(nameOf(outcome))));
  }
  for (const auto& statement : parts_.scenario.statements) {
    const auto* send = std::get_if<PhoneSend>(&statement.action);
    if (!send || book_.find(send->label) || isExpected(send->label)) continue;
    tell(statement.line, send->label, send->label + " is not sent, and nothing is expected of it");
  }
  return good;
}

bool ScenarioRun::isExpected(const std::string& label) const {
  const auto& all = parts_.scenario.expectations;
  return std::any_of(all.begin(), all.end(), [&](const auto& each) { return each.label == label; });
}

void ScenarioRun::tell(const Moment& at, const std::string& who, std::string_view type,
                       const Fields& fields, const std::string& text) {
  tellLine(parts_.output, at, who, type, fields, text);
}

void ScenarioRun::after(Duration delay, void (ScenarioRun::*step)()) {
  environment_.mainQueue()->asyncAfter(delay, [weak = weak_from_this(), step] {
    const auto self = weak.lock();
    if (self && !self->over_) ((*self).*step)();
  });
}

}  // namespace tandrell
