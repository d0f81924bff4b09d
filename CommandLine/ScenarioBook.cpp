#include <CommandLine/ScenarioBook.h>
#include <TandrellCore/Api/TandrellDevice.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

/// The effects of the sessions that the device took in under this identifier.
std::vector<TrackingEffect> takenIn(std::uint32_t parcelId, const CommunicatorRecords& records) {
  std::vector<TrackingEffect> effects;
  for (const auto& [time, parcel] : records.parcels) {
    if (parcel.id() != parcelId) continue;
    effects.push_back(trackingEffectOf(viewOf(parcel.package().data())));
  }
  return effects;
}

TrackingEffect effectOf(const ScenarioSend& send) {
  return trackingEffectOf(send.payload->serializedData());
}

/// How many of the changes travelled in the carrier's parcel: as many as make its session what the
/// device took in.
std::size_t countMerged(const ScenarioSend& carrier, const std::vector<ScenarioSend*>& changes,
                        const std::vector<TrackingEffect>& sessions) {
  std::size_t merged = 0;
  auto sum = effectOf(carrier);
  for (std::size_t i = 0; i < changes.size(); ++i) {
    sum = sum.followedBy(effectOf(*changes[i]));
    if (std::find(sessions.begin(), sessions.end(), sum) != sessions.end()) merged = i + 1;
  }
  return merged;
}

}  // namespace

std::optional<std::size_t> ScenarioBook::indexOf(std::uint32_t parcelId) const {
  for (std::size_t i = 0; i < sends_.size(); ++i) {
    if (sends_[i].payload->parcelId() == parcelId) return i;
  }
  return std::nullopt;
}

const ScenarioSend* ScenarioBook::find(std::uint32_t parcelId) const {
  const auto index = indexOf(parcelId);
  return index ? &sends_[*index] : nullptr;
}

const ScenarioSend* ScenarioBook::find(const std::string& label) const {
  const auto found = std::find_if(sends_.begin(), sends_.end(),
                                  [&](const ScenarioSend& send) { return send.label == label; });
  return found == sends_.end() ? nullptr : &*found;
}

bool ScenarioBook::isEverythingDecided() const {
  return std::all_of(sends_.begin(), sends_.end(),
                     [](const ScenarioSend& send) { return send.outcome.has_value(); });
}

void ScenarioBook::didReport(const Moment& at, const ::Parcel& report,
                             const CommunicatorRecords& records) {
  const auto index = indexOf(report.id());
  const bool delivered = report.status() == ParcelStatus::delivered;
  if (!index || (!delivered && report.status() != ParcelStatus::error)) return;
  auto& send = sends_[*index];
  decide(send, at, delivered ? ScenarioOutcome::delivered : ScenarioOutcome::failed,
         delivered ? "" : "reported in error");
  decideMerged(send, at, records);
}

void ScenarioBook::didReject(const Moment& at, std::uint32_t parcelId, const Error& error,
                             const CommunicatorRecords& records) {
  const auto index = indexOf(parcelId);
  if (!index) return;
  auto& send = sends_[*index];
  const bool refused = error.domain == errorDomain(TandrellDeviceError());
  decide(send, at, refused ? ScenarioOutcome::refused : ScenarioOutcome::failed,
         error.description());
  if (!refused) decideMerged(send, at, records);
}

void ScenarioBook::decide(ScenarioSend& send, const Moment& at, ScenarioOutcome outcome,
                          std::string note) {
  // The first word counts, unless the parcel arrives after all.
  const bool late = send.outcome && outcome == ScenarioOutcome::delivered &&
                    *send.outcome != ScenarioOutcome::delivered;
  if (send.outcome && !late) return;
  if (late) note = fmt::format("after it had {}", std::string(nameOf(*send.outcome)));
  send.outcome = outcome;
  send.decided = at.time;
  send.note = std::move(note);
}

void ScenarioBook::decideMerged(const ScenarioSend& carrier, const Moment& at,
                                const CommunicatorRecords& records) {
  if (!carrier.isTracking()) return;
  std::vector<ScenarioSend*> changes;
  for (auto& send : sends_) {
    const bool later = send.sent >= carrier.sent && send.sent < at.time;
    if (!later || !send.isTracking() || send.outcome) continue;
    if (takenIn(send.payload->parcelId(), records).empty()) changes.push_back(&send);
  }
  const auto sessions = takenIn(carrier.payload->parcelId(), records);
  const auto merged = countMerged(carrier, changes, sessions);
  const bool delivered = carrier.outcome == ScenarioOutcome::delivered;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    // What never reached the device took the changes in it along.
    const bool travelled = i < merged || sessions.empty();
    decide(*changes[i], at,
           !travelled  ? ScenarioOutcome::lost
           : delivered ? ScenarioOutcome::merged
                       : ScenarioOutcome::failed,
           travelled ? "in " + carrier.label
                     : fmt::format("merged into {} when that was on its way", carrier.label));
  }
}

}  // namespace tandrell
