#pragma once

#include <CommandLine/Output.h>
#include <CommandLine/ScenarioPayloads.h>
#include <Simulator/CommunicatorRecords.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tandrell {

/// Something that a scenario's phone has sent, and what has become of it.
struct ScenarioSend {
  std::size_t line = 0;  ///< of its statement
  std::string label;
  std::string what;  ///< for people
  DevicePayloadPtr payload;
  Duration sent = Duration::zero();
  /// Absent while it is undecided.
  std::optional<ScenarioOutcome> outcome = {};
  Duration decided = Duration::zero();  ///< when, where there is an outcome
  std::string note = {};                ///< why, or in whose parcel; may be empty

  bool isTracking() const { return payload->packageType() == PackageType::trackingSession; }
};

/// The book of what was sent. It follows what the library reports of each parcel; of a tracking
/// change that was merged away it reports nothing, and what has become of that one is read off the
/// sessions that the device has taken in.
class ScenarioBook {
 public:
  /// Opens an entry.
  void add(ScenarioSend send) { sends_.push_back(std::move(send)); }

  /// The entry of the parcel, or of the label; null where it is none of them. Valid until the next
  /// entry is opened.
  const ScenarioSend* find(std::uint32_t parcelId) const;
  const ScenarioSend* find(const std::string& label) const;

  /// A report on the parcel; `records` is what the device has met up to now.
  void didReport(const Moment& at, const ::Parcel& report, const CommunicatorRecords& records);
  /// The link or the facade does not take it, or could not write it.
  void didReject(const Moment& at, std::uint32_t parcelId, const Error& error,
                 const CommunicatorRecords& records);

  bool isEverythingDecided() const;
  const std::vector<ScenarioSend>& sends() const { return sends_; }

 private:
  std::optional<std::size_t> indexOf(std::uint32_t parcelId) const;
  void decide(ScenarioSend& send, const Moment& at, ScenarioOutcome outcome, std::string note);
  void decideMerged(const ScenarioSend& carrier, const Moment& at,
                    const CommunicatorRecords& records);

  std::vector<ScenarioSend> sends_;
};

}  // namespace tandrell
