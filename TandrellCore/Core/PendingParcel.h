#pragma once

#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Utility/JsonCodec.h>

#include <cstdint>
#include <map>

namespace tandrell {

/// A parcel that was handed to the device and whose end is not known yet, or that waits for its
/// turn. Stored as JSON under the names of its fields, in this order.
struct PendingParcel {
  std::uint32_t parcelId;
  std::int64_t packageType;
  /// When the record was made, or the device last reported on the parcel.
  Date date;
};

/// By parcel id.
using PendingParcels = std::map<std::uint32_t, PendingParcel>;

/// The record of a parcel as of that moment.
PendingParcel makePendingParcel(const ::Parcel& parcel, Date date);

/// The link's own report on a parcel that will not be delivered: its id, the status `error` and a
/// package with nothing but its type. A type that the message cannot hold stays an unknown one.
::Parcel buildErrorParcelFromPending(const PendingParcel& pending);

/// An object with the three fields.
template <>
struct JsonCodec<PendingParcel> {
  static Json encode(const PendingParcel& pending);
  static PendingParcel decode(const Json& json);
};

}  // namespace tandrell
