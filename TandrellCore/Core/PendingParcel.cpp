#include <TandrellCore/Core/PendingParcel.h>

#include <algorithm>
#include <limits>

namespace tandrell {
namespace {

/// A message's enumeration has 32 bits. A number beyond them becomes the nearest one within, which
/// is no known type either; cut off, it could become another type's number.
PackageType::Type packageTypeOf(std::int64_t number) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<PackageType::Type>(
      std::clamp<std::int64_t>(number, Limits::min(), Limits::max()));
}

}  // namespace

PendingParcel makePendingParcel(const ::Parcel& parcel, Date date) {
  return {parcel.id(), static_cast<std::int64_t>(parcel.package().type()), date};
}

::Parcel buildErrorParcelFromPending(const PendingParcel& pending) {
  ::Parcel parcel;
  parcel.set_id(pending.parcelId);
  parcel.set_status(ParcelStatus::error);
  parcel.mutable_package()->set_type(packageTypeOf(pending.packageType));
  return parcel;
}

Json JsonCodec<PendingParcel>::encode(const PendingParcel& pending) {
  return {{"parcelId", pending.parcelId},
          {"packageType", pending.packageType},
          {"date", JsonCodec<Date>::encode(pending.date)}};
}

PendingParcel JsonCodec<PendingParcel>::decode(const Json& json) {
  return {json.at("parcelId").get<std::uint32_t>(), json.at("packageType").get<std::int64_t>(),
          JsonCodec<Date>::decode(json.at("date"))};
}

}  // namespace tandrell
