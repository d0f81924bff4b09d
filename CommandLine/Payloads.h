#pragma once

#include <TandrellCore/Api/DevicePayload.h>
#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Proto/TrackingSync.pb.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What the program sends besides text messages. The library passes positions and times through;
/// this program sends integer positions in units of 1e-7 degrees and times in seconds since 1970.
namespace tandrell {

/// A place on Earth, in degrees; north and east are positive.
struct Position {
  double latitude = 0;   ///< -90 to 90
  double longitude = 0;  ///< -180 to 180
};

/// One package of any type, as its bytes.
class PackagePayload final : public DevicePayload {
 public:
  PackagePayload(PackageType::Type type, Data bytes, std::uint32_t parcelId)
      : DevicePayload(parcelId, DevicePayloadStatus::none, type), bytes_(std::move(bytes)) {}

 protected:
  Data serializeData() const override { return bytes_; }

 private:
  const Data bytes_;
};

/// An emergency report. Without a position its coordinates stay 0 and the fix reads "none", with
/// one "manual": it comes from the user, not from a receiver.
DevicePayloadPtr makeSosPayload(SosMessageType::Type type, const std::optional<Position>& position,
                                Date date, std::uint32_t parcelId);

/// What changes in the session in which the user shares the way.
struct TrackingChange {
  TrackingSessionEvent::Type event = TrackingSessionEvent::none;
  std::vector<::TrackingViewerDto> toAdd;
  std::vector<::TrackingViewerDto> toRemove;
  std::optional<Position> position;
};
DevicePayloadPtr makeTrackingPayload(const TrackingChange& change, Date date,
                                     std::uint32_t parcelId);

/// One place on the way.
DevicePayloadPtr makeFixPayload(const Position& position, Date date, std::uint32_t parcelId);

/// Asks for the weather there.
DevicePayloadPtr makeForecastPayload(const Position& position, std::uint32_t parcelId);

}  // namespace tandrell
