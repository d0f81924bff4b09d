#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Names.h>

namespace tandrell {

/// The complete frame of an outgoing command: type byte, 16-bit big-endian length, protobuf bytes.
/// A message that cannot be serialised, or that takes more than 65535 bytes, is a programming error
/// and stops the process.
TANDRELL_API Data prepareForWrite(const ::Parcel& parcel);
TANDRELL_API Data prepareForWrite(const ::SettingsCommand& settings);

}  // namespace tandrell
