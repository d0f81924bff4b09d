#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tandrell {

/// An owned run of bytes: what is written to a characteristic, what a notification carried.
using Data = std::vector<std::uint8_t>;

/// A borrowed run of bytes; valid only as long as the `Data` it looks at.
using DataView = std::span<const std::uint8_t>;

/// The bytes of a text or of a protobuf `bytes` field, without a copy.
inline DataView viewOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// The same bytes as a text view, for interfaces that take bytes as text.
inline std::string_view textOf(DataView data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

/// The bytes as a value of its own.
inline Data copyOf(DataView data) { return {data.begin(), data.end()}; }

}  // namespace tandrell
