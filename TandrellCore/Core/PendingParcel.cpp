#include <TandrellCore/Core/PendingParcel.h>

namespace tandrell {

PendingParcel makePendingParcel(const ::Parcel& parcel, Date date) {
  return {parcel.id(), static_cast<std::int64_t>(parcel.package().type()), date};
}

::Parcel buildErrorParcelFromPending(const PendingParcel& pending) {
  ::Parcel parcel;
  parcel.set_id(pending.parcelId);
  parcel.set_status(ParcelStatus::error);
  parcel.mutable_package()->set_type(static_cast<PackageType::Type>(pending.packageType));
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
