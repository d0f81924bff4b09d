#include <CommandLine/Recipient.h>
#include <CommandLine/ScenarioPayloads.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <TandrellCore/Utility/Overloaded.h>

#include <fmt/format.h>

namespace tandrell {
namespace {

using Outcome = Result<DevicePayloadPtr>;

Position positionOf(const ScenarioPlace& place) { return {place.latitude, place.longitude}; }

std::string textOf(const ScenarioPlace& place) {
  return fmt::format("{} {}", place.latitude, place.longitude);
}

Outcome makeMessage(const ScenarioMessage& message, const Environment& environment,
                    std::uint32_t parcelId) {
  const auto to = recipientNamed("recipient", message.to, environment);
  if (!to.isSuccess()) return Outcome::error(to.error());
  return Outcome::success(MessagePayload::make(environment.wallClock, message.text,
                                               to.value().email, to.value().phone, parcelId,
                                               DevicePayloadStatus::none));
}

Outcome makeTracking(const ScenarioTracking& tracking, const Environment& environment,
                     std::uint32_t parcelId) {
  using Change = ScenarioTracking::Change;
  TrackingChange change;
  if (tracking.change == Change::start) change.event = TrackingSessionEvent::enable;
  if (tracking.change == Change::stop) change.event = TrackingSessionEvent::disable;
  if (!tracking.viewer.empty()) {
    const auto named = recipientNamed("viewer", tracking.viewer, environment);
    if (!named.isSuccess()) return Outcome::error(named.error());
    (tracking.change == Change::add ? change.toAdd : change.toRemove)
        .push_back(named.value().viewer());
  }
  return Outcome::success(makeTrackingPayload(change, environment.wallClock->date(), parcelId));
}

DevicePayloadPtr makeSos(const ScenarioSos& sos, const Environment& environment,
                         std::uint32_t parcelId) {
  const auto type = sos.raise ? SosMessageType::alarm : SosMessageType::cancel;
  const auto position = sos.place ? std::optional(positionOf(*sos.place)) : std::nullopt;
  return makeSosPayload(type, position, environment.wallClock->date(), parcelId);
}

std::string describeTracking(const ScenarioTracking& tracking) {
  constexpr std::string_view names[] = {"start", "stop", "add", "remove"};
  return fmt::format("tracking, {}{}{}",
                     std::string(names[static_cast<std::size_t>(tracking.change)]),
                     tracking.viewer.empty() ? "" : " ", tracking.viewer);
}

}  // namespace

std::string describe(const PhoneSend::Content& content) {
  return std::visit(
      Overloaded{
          [](const ScenarioMessage& message) { return "message to " + message.to; },
          [](const ScenarioSos& sos) { return std::string(sos.raise ? "SOS" : "SOS, cancelled"); },
          [](const ScenarioTracking& tracking) { return describeTracking(tracking); },
          [](const ScenarioFix& fix) { return "place " + textOf(fix.place); },
          [](const ScenarioForecast& forecast) {
            return "forecast for " + textOf(forecast.place);
          }},
      content);
}

Result<DevicePayloadPtr> makeScenarioPayload(const PhoneSend::Content& content,
                                             const Environment& environment,
                                             std::uint32_t parcelId) {
  return std::visit(
      Overloaded{[&](const ScenarioMessage& message) {
                   return makeMessage(message, environment, parcelId);
                 },
                 [&](const ScenarioSos& sos) {
                   return Outcome::success(makeSos(sos, environment, parcelId));
                 },
                 [&](const ScenarioTracking& tracking) {
                   return makeTracking(tracking, environment, parcelId);
                 },
                 [&](const ScenarioFix& fix) {
                   return Outcome::success(makeFixPayload(positionOf(fix.place),
                                                          environment.wallClock->date(), parcelId));
                 },
                 [&](const ScenarioForecast& forecast) {
                   return Outcome::success(
                       makeForecastPayload(positionOf(forecast.place), parcelId));
                 }},
      content);
}

TrackingEffect TrackingEffect::followedBy(const TrackingEffect& other) const {
  auto sum = *this;
  if (other.event != TrackingSessionEvent::none) sum.event = other.event;
  for (const auto& [viewer, count] : other.viewers) sum.viewers[viewer] += count;
  std::erase_if(sum.viewers, [](const auto& entry) { return entry.second == 0; });
  return sum;
}

TrackingEffect trackingEffectOf(DataView session) {
  const auto read = fromData<::TrackingSessionDto>(session).value_or(::TrackingSessionDto());
  TrackingEffect effect;
  effect.event = read.event();
  const auto count = [&](const ::TrackingViewerDto& viewer, int by) {
    effect.viewers[viewer.email() + viewer.phonenumber()] += by;
  };
  for (const auto& viewer : read.viewerstoadd()) count(viewer, 1);
  for (const auto& viewer : read.viewerstoremove()) count(viewer, -1);
  return TrackingEffect().followedBy(effect);
}

}  // namespace tandrell
