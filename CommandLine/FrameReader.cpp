#include <CommandLine/FrameReader.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Utility/CommandParser.h>

#include <fmt/format.h>

#include <utility>

namespace tandrell {
namespace {

using Kind = StreamPiece::Kind;

constexpr std::size_t headerSize = 3;
/// What an application can send, 340 bytes, with the package and the parcel around it.
constexpr std::size_t longestSearched = 400;

std::shared_ptr<google::protobuf::Message> messageOf(std::uint8_t type) {
  switch (type) {
    case CommandType::parcel:
      return std::make_shared<::Parcel>();
    case CommandType::log:
      return std::make_shared<::LogCommand>();
    case CommandType::quality:
      return std::make_shared<::QualityCommand>();
    case CommandType::battery:
      return std::make_shared<::BatteryCommand>();
    case CommandType::info:
      return std::make_shared<::InfoCommand>();
    case CommandType::sleep:
      return std::make_shared<::SleepCommand>();
    case CommandType::settings:
      return std::make_shared<::SettingsCommand>();
    default:
      return nullptr;
  }
}

class Reader {
 public:
  Reader(DataView stream, StreamDirection direction) : stream_(stream), direction_(direction) {}

  std::vector<StreamPiece> read() {
    while (at_ < stream_.size()) {
      auto piece = next();
      at_ += piece.size;
      pieces_.push_back(std::move(piece));
    }
    return std::move(pieces_);
  }

 private:
  struct Header {
    std::uint8_t type = 0;
    std::size_t length = 0;
  };

  std::size_t left(std::size_t at) const { return stream_.size() - at; }

  std::optional<Header> headerAt(std::size_t at) const {
    if (left(at) < headerSize) return std::nullopt;
    return Header{stream_[at], stream_[at + 1] * std::size_t{256} + stream_[at + 2]};
  }

  bool isWholeAt(std::size_t at, const Header& header) const {
    return left(at) >= headerSize + header.length;
  }

  /// The frame's message; null where the type is none or the payload does not parse.
  std::shared_ptr<google::protobuf::Message> parse(std::size_t at, const Header& header) const {
    auto message = messageOf(header.type);
    const auto* payload = stream_.data() + at + headerSize;
    const auto size = static_cast<int>(header.length);
    return message && message->ParseFromArray(payload, size) ? message : nullptr;
  }

  StreamPiece next() {
    const auto type = stream_[at_];
    if (direction_ != StreamDirection::fromPhone) {
      if (type == 'b' || type == 'k' || type == 'q') return console(2);
      if (type == 'l' && left(at_) >= 4) {
        const auto size = 4 + stream_[at_ + 2] * std::size_t{256} + stream_[at_ + 3];
        if (size <= left(at_)) return console(size);
      }
    }
    if (!messageOf(type)) return skip(fmt::format("{} is no command type", type));
    const auto header = headerAt(at_);
    if (!header) {
      return skip(fmt::format("the frame's header ends after {} of 3 bytes", left(at_)));
    }
    if (!isWholeAt(at_, *header)) {
      return skip(fmt::format("the payload ends after {} of {} bytes", left(at_) - headerSize,
                              header->length));
    }
    auto message = parse(at_, *header);
    return message ? frame(*header, std::move(message)) : damaged(*header);
  }

  StreamPiece console(std::size_t size) const {
    return {Kind::console, at_, std::min(size, left(at_))};
  }

  StreamPiece frame(const Header& header,
                    std::shared_ptr<google::protobuf::Message> message) const {
    const auto command = nameOf(static_cast<CommandType::Type>(header.type));
    return {Kind::frame,       at_, headerSize + header.length, objection(header, command), command,
            std::move(message)};
  }

  /// What the direction does not allow.
  std::string objection(const Header& header, const std::string& command) const {
    const bool sent = header.type == CommandType::parcel || header.type == CommandType::settings;
    if (direction_ == StreamDirection::fromPhone && !sent) {
      return fmt::format("a phone sends no {}", command);
    }
    constexpr std::size_t limit = CommandParser::maxDataLength;
    if (direction_ == StreamDirection::fromDevice && header.length > limit) {
      return fmt::format("a device sends at most {} bytes, and these are {}", limit, header.length);
    }
    return {};
  }

  StreamPiece damaged(const Header& header) const {
    const auto problem = fmt::format("the payload is no {} message",
                                     nameOf(static_cast<CommandType::Type>(header.type)));
    const auto behind = at_ + headerSize + header.length;
    if (behind != stream_.size() && !beginsAt(behind, 0)) return skip(problem);
    return {Kind::malformed, at_, behind - at_, problem};
  }

  StreamPiece skip(std::string problem) const {
    auto end = at_ + 1;
    while (end < stream_.size() && !beginsAt(end, 1)) ++end;
    return {Kind::malformed, at_, end - at_, std::move(problem)};
  }

  /// Whether a whole and sound frame begins here, of a length that is looked for.
  bool beginsAt(std::size_t at, std::size_t shortest) const {
    const auto header = headerAt(at);
    return header && header->length >= shortest && header->length <= longestSearched &&
           isWholeAt(at, *header) && parse(at, *header);
  }

  const DataView stream_;
  const StreamDirection direction_;
  std::size_t at_ = 0;
  std::vector<StreamPiece> pieces_;
};

}  // namespace

std::vector<StreamPiece> readStream(DataView stream, StreamDirection direction) {
  return Reader(stream, direction).read();
}

}  // namespace tandrell
