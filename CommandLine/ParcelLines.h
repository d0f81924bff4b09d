#pragma once

#include <CommandLine/Output.h>
#include <TandrellCore/Proto/Device.pb.h>

#include <cstddef>
#include <string>

/// How runs tell of what crosses the link.
namespace tandrell {

/// What is written to the device at once, in bytes.
constexpr std::size_t chunkSize = 20;
/// In how many writes so many bytes go to it; the last one has what is left.
constexpr std::size_t chunkCount(std::size_t bytes) { return (bytes + chunkSize - 1) / chunkSize; }

/// The event "message" of a message that came in. One that cannot be read is told as empty.
struct MessageLine {
  Output::Fields fields;
  std::string text;
};
MessageLine messageLine(const ::Parcel& parcel);

}  // namespace tandrell
