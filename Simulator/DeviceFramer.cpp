#include <Simulator/DeviceFramer.h>
#include <TandrellCore/Platform/Error.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tandrell {
namespace {

constexpr std::size_t headerSize = 3;
constexpr std::size_t longestPayload = 0xFFFF;

}  // namespace

Data DeviceFramer::bytesOf(const DeviceFrame& frame) {
  const std::size_t length = frame.payload.size();
  if (length > longestPayload) fatalError("DeviceFramer: a payload is longer than 65535 bytes");
  Data bytes(headerSize + length);
  bytes[0] = frame.type;
  bytes[1] = static_cast<std::uint8_t>(length >> 8);
  bytes[2] = static_cast<std::uint8_t>(length & 0xFF);
  std::copy(frame.payload.begin(), frame.payload.end(), bytes.begin() + headerSize);
  return bytes;
}

std::vector<DeviceFrame> DeviceFramer::feed(DataView bytes) {
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  std::vector<DeviceFrame> frames;
  DataView rest = buffer_;
  while (rest.size() >= headerSize) {
    const std::size_t size = headerSize + (std::size_t{rest[1]} << 8 | rest[2]);
    if (rest.size() < size) break;
    frames.push_back({rest[0], copyOf(rest.subspan(headerSize, size - headerSize))});
    rest = rest.subspan(size);
  }
  buffer_ = copyOf(rest);
  return frames;
}

Data DeviceFramer::reset() { return std::exchange(buffer_, {}); }

}  // namespace tandrell
