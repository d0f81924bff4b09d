#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>

#include <cstdint>
#include <vector>

namespace tandrell {

/// One command on the device link: its type's number and the protobuf bytes of its message.
struct DeviceFrame {
  std::uint8_t type = 0;
  Data payload;
};

/// The device's side of the command stream. A frame is the type byte, the payload's length as two
/// bytes, high byte first, and the payload; nothing marks where one begins. Deliberately shares
/// nothing with the library's parser, or one mistake would cancel out on both sides.
/// Not thread-safe.
class TANDRELL_API DeviceFramer {
 public:
  /// The frame's bytes. A payload of more than 65535 bytes stops the process.
  static Data bytesOf(const DeviceFrame& frame);

  /// Takes a piece of the incoming stream; returns the frames that it completes, in order.
  std::vector<DeviceFrame> feed(DataView bytes);

  /// Drops and returns the bytes of the frame that is not complete; empty where there is none.
  Data reset();

 private:
  Data buffer_;
};

}  // namespace tandrell
