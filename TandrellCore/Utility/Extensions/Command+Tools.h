#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Proto/Names.h>

namespace tandrell {

/// The complete frame of an outgoing command: type byte, 16-bit big-endian length, protobuf bytes.
/// A message that cannot be serialised, or that takes more than 65535 bytes, is a programming error
/// and stops the process.
Data prepareForWrite(const ::Parcel& parcel);
Data prepareForWrite(const ::SettingsCommand& settings);

}  // namespace tandrell
