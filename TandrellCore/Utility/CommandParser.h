#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Names.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <variant>

namespace tandrell {

/// A message of the device link, as it came out of a frame.
using Command = std::variant<::Parcel, ::LogCommand, ::QualityCommand, ::BatteryCommand,
                             ::InfoCommand, ::SleepCommand, ::SettingsCommand>;

class CommandParser;

/// Receives what a parser finds, synchronously, on the thread that feeds it.
class TANDRELL_API CommandParserDelegate {
 public:
  virtual ~CommandParserDelegate() = default;
  virtual void didParseCommand(CommandParser& parser, const Command& command) = 0;
  /// A frame announced more than `CommandParser::maxDataLength` bytes. The parser reads it like any
  /// other; what to do about the device is the delegate's business.
  virtual void didParseInvalidDataLength(CommandParser& parser, int length) = 0;
};

/// Puts frames together again out of the device's byte stream, however it is cut.
///
/// A frame is a command-type byte, the payload length as an unsigned 16-bit big-endian number, and
/// the payload, one protobuf message. There is no start mark or checksum: boundaries are known by
/// counting only. A payload that does not decode and a frame of an unknown type are logged and
/// dropped, and parsing goes on with the next byte. A frame without payload is complete only when
/// the byte after its header arrives, and then decodes to a message of defaults.
///
/// Holds no lock: `parseData` and `reset` are called from one thread at a time. A frame that lies
/// whole in a notification is decoded where it lies; a payload byte of another is copied once, into
/// a buffer of the announced size that serves frame after frame.
class TANDRELL_API CommandParser {
 public:
  /// Largest payload that the device is known to send, in bytes.
  static constexpr int maxDataLength = 320;

  /// Keeps the delegate alive.
  explicit CommandParser(std::shared_ptr<CommandParserDelegate> delegate);

  /// Feeds one notification, which may be empty. Everything found in it has been handed to the
  /// delegate when this returns.
  void parseData(DataView data);

  /// Drops the frame in progress, but not the duty to ignore a byte after a special type byte.
  void reset();

 private:
  // Each takes the bytes left and returns those that it did not consume.
  DataView ignoreBytes(DataView data);
  DataView parseCommandType(DataView data);
  DataView parseDataLength0(DataView data);
  DataView parseDataLength1(DataView data);
  DataView parseContent(DataView data);
  DataView fillBuffer(DataView data);
  void didFillBuffer(DataView payload);
  std::optional<Command> decode(DataView payload) const;

  std::shared_ptr<CommandParserDelegate> delegate_;
  std::optional<CommandType::Type> activeCommandType_;
  std::optional<int> activeDataLength_;
  std::optional<std::uint8_t> dataLength0_;
  std::optional<std::uint8_t> dataLength1_;
  Data currentBuffer_;  // empty where the payload has not begun
  std::size_t byteIgnoreCount_ = 0;
};

}  // namespace tandrell
