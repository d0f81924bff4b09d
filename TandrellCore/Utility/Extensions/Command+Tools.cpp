#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>

#include <limits>

namespace tandrell {
namespace {

constexpr std::size_t headerSize = 3;

Data prepareForWrite(const google::protobuf::MessageLite& message, CommandType::Type commandType) {
  const std::size_t length = message.ByteSizeLong();
  if (length > std::numeric_limits<std::uint16_t>::max()) {
    fatalError("prepareForWrite: payload too long; length=" + std::to_string(length));
  }
  Data frame(headerSize + length);
  frame[0] = static_cast<std::uint8_t>(commandType);
  frame[1] = static_cast<std::uint8_t>(length >> 8);
  frame[2] = static_cast<std::uint8_t>(length & 0xFF);
  if (!message.SerializeToArray(frame.data() + headerSize, static_cast<int>(length))) {
    fatalError("prepareForWrite: failed to serialize " + message.GetTypeName());
  }
  return frame;
}

}  // namespace

Data prepareForWrite(const ::Parcel& parcel) {
  return prepareForWrite(parcel, CommandType::parcel);
}

Data prepareForWrite(const ::SettingsCommand& settings) {
  return prepareForWrite(settings, CommandType::settings);
}

}  // namespace tandrell
