#pragma once

#include <CommandLine/Payloads.h>
#include <Simulator/Scenario.h>
#include <TandrellCore/Platform/Result.h>

#include <map>
#include <string>

/// What a scenario's phone sends, as the library's payloads.
namespace tandrell {

/// "message to +442079460018", for people.
std::string describe(const PhoneSend::Content& content);

/// The payload, or what `recipientNamed` says of a recipient or viewer.
Result<DevicePayloadPtr> makeScenarioPayload(const PhoneSend::Content& content,
                                             const Environment& environment,
                                             std::uint32_t parcelId);

/// What a tracking session does in all: two that say the same are equal, whatever their order.
struct TrackingEffect {
  TrackingSessionEvent::Type event = TrackingSessionEvent::none;
  /// How often each viewer is added, less how often removed; nobody with 0.
  std::map<std::string, int> viewers;

  /// The effect of this one and then the other.
  TrackingEffect followedBy(const TrackingEffect& other) const;
  friend bool operator==(const TrackingEffect&, const TrackingEffect&) = default;
};

/// The effect of a tracking session's bytes; none of what cannot be read.
TrackingEffect trackingEffectOf(DataView session);

}  // namespace tandrell
