#include <TandrellCore/Proto/Wire.h>
#include <TandrellCore/Utility/CommandParser.h>
#include <TandrellCore/Utility/Logger.h>

#include <algorithm>

namespace tandrell {
namespace {

constexpr SourceLog log("Utility/CommandParser");

// Letters that a device in a text mode of its own sends in place of a type byte. After 'l' one byte
// is dropped and a frame of that unknown type follows; after the others one byte is dropped and the
// next is a type byte again.
constexpr std::uint8_t letterL = 108;
constexpr bool announcesDroppedByte(std::uint8_t type) {
  return type == 98 || type == 107 || type == 113;  // 'b', 'k', 'q'
}

template <class Message>
std::optional<Command> decodeAs(DataView payload) {
  // Most commands are without texts, and the check of those costs as much as the parsing.
  static const bool hasTexts = holdsTexts(*Message::descriptor());
  std::optional<Command> command(std::in_place, std::in_place_type<Message>);
  auto& message = std::get<Message>(*command);
  const bool isParsed = hasTexts ? parseWire(payload, message) : parseTextless(payload, message);
  if (!isParsed) command.reset();
  return command;
}

}  // namespace

CommandParser::CommandParser(std::shared_ptr<CommandParserDelegate> delegate)
    : delegate_(std::move(delegate)) {}

void CommandParser::parseData(DataView data) {
  while (true) {
    data = ignoreBytes(data);
    if (data.empty()) return;
    data = activeCommandType_ ? parseContent(data) : parseCommandType(data);
  }
}

void CommandParser::reset() {
  currentBuffer_.clear();
  activeCommandType_.reset();
  dataLength0_.reset();
  dataLength1_.reset();
  activeDataLength_.reset();
}

DataView CommandParser::ignoreBytes(DataView data) {
  const auto dropped = std::min(byteIgnoreCount_, data.size());
  byteIgnoreCount_ -= dropped;
  return data.subspan(dropped);
}

DataView CommandParser::parseCommandType(DataView data) {
  const std::uint8_t type = data.front();
  activeCommandType_ = static_cast<CommandType::Type>(type);
  if (type == letterL) byteIgnoreCount_ = 1;
  if (announcesDroppedByte(type)) {
    byteIgnoreCount_ = 1;
    activeCommandType_.reset();
  }
  return data.subspan(1);
}

DataView CommandParser::parseContent(DataView data) {
  if (!dataLength0_) return parseDataLength0(data);
  if (!dataLength1_) return parseDataLength1(data);
  return fillBuffer(data);
}

DataView CommandParser::parseDataLength0(DataView data) {
  dataLength0_ = data.front();
  return data.subspan(1);
}

DataView CommandParser::parseDataLength1(DataView data) {
  dataLength1_ = data.front();
  activeDataLength_ = *dataLength0_ * 256 + *dataLength1_;
  const int length = *activeDataLength_;  // the delegate may reset this parser
  if (length > maxDataLength) delegate_->didParseInvalidDataLength(*this, length);
  return data.subspan(1);
}

DataView CommandParser::fillBuffer(DataView data) {
  const auto length = static_cast<std::size_t>(*activeDataLength_);
  const auto taken = data.first(std::min(length - currentBuffer_.size(), data.size()));
  if (taken.size() == length) {
    didFillBuffer(taken);
  } else {
    currentBuffer_.reserve(length);
    currentBuffer_.insert(currentBuffer_.end(), taken.begin(), taken.end());
    if (currentBuffer_.size() == length) didFillBuffer(currentBuffer_);
  }
  return data.subspan(taken.size());
}

void CommandParser::didFillBuffer(DataView payload) {
  if (const auto command = decode(payload)) delegate_->didParseCommand(*this, *command);
  reset();
}

std::optional<Command> CommandParser::decode(DataView payload) const {
  std::optional<Command> command;
  switch (*activeCommandType_) {
    case CommandType::parcel:
      command = decodeAs<::Parcel>(payload);
      break;
    case CommandType::log:
      command = decodeAs<::LogCommand>(payload);
      break;
    case CommandType::quality:
      command = decodeAs<::QualityCommand>(payload);
      break;
    case CommandType::battery:
      command = decodeAs<::BatteryCommand>(payload);
      break;
    case CommandType::info:
      command = decodeAs<::InfoCommand>(payload);
      break;
    case CommandType::sleep:
      command = decodeAs<::SleepCommand>(payload);
      break;
    case CommandType::settings:
      command = decodeAs<::SettingsCommand>(payload);
      break;
    default:
      log.debug("didFillBuffer()", [&] {
        return "didFillBuffer: unrecognized command type; type=" + nameOf(*activeCommandType_);
      });
      return std::nullopt;
  }
  if (!command) {
    log.error("didFillBuffer()", [&] {
      return "didFillBuffer: failed to deserialize protobuf; type=" + nameOf(*activeCommandType_) +
             "; error=malformed or truncated message";
    });
  }
  return command;
}

}  // namespace tandrell
