#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/UserDefaults.h>

#include <optional>

namespace tandrell {

/// A property list as CBOR: every value is an array of two, the number of its kind and what it
/// holds. The kinds: 0 boolean, 1 integer, 2 double, 3 float, 4 text, 5 bytes, 6 date, 7 array,
/// 8 map (keys and values alternate in one array). Doubles, floats and dates (seconds since
/// 2001-01-01T00:00:00Z) are held as the integer with the same bits, so that each comes back
/// exactly, NaN and the sign of zero included.
Data encode(const PropertyList& list);

/// Absent for anything that `encode` does not make of a list of at most
/// `PropertyList::maximumDepth` levels, however long and however deep.
std::optional<PropertyList> decode(DataView bytes);

}  // namespace tandrell
