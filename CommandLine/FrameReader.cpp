#include <CommandLine/FrameReader.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Utility/CommandParser.h>

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace tandrell {
namespace {

using Kind = StreamPiece::Kind;

constexpr std::size_t headerSize = 3;
/// What an application can send, 340 bytes, with the package and the parcel around it.
constexpr std::size_t longestSearched = 400;
/// What decides of a piece: the longest one, and whether a frame begins behind it.
constexpr std::size_t lookahead =
    4 + std::numeric_limits<std::uint16_t>::max() + headerSize + longestSearched + 1;

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

}  // namespace

void FrameReader::read(DataView bytes) {
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(at_));
  passed_ += std::exchange(at_, 0);
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  proceed();
}

void FrameReader::end() {
  ended_ = true;
  proceed();
  if (std::exchange(skipping_, false)) tell_(last_);
}

void FrameReader::proceed() {
  while (isCertain()) {
    if (skipping_) {
      skipOn();
    } else if (repeatsLast()) {
      last_.offset += last_.size;
      at_ += last_.size;
      tell_(last_);
    } else {
      next();
    }
  }
}

bool FrameReader::isCertain() const {
  return at_ < buffer_.size() && (ended_ || left(at_) >= lookahead);
}

/// Whether a frame and the bytes behind it are the same.
bool FrameReader::repeatsLast() const {
  const auto size = last_.size;
  const auto here = buffer_.begin() + static_cast<std::ptrdiff_t>(at_);
  return last_.kind == Kind::frame && at_ >= size && left(at_) >= size &&
         std::equal(here, here + static_cast<std::ptrdiff_t>(size),
                    here - static_cast<std::ptrdiff_t>(size));
}

void FrameReader::take(StreamPiece piece) {
  last_ = std::move(piece);
  at_ += last_.size;
  if (!skipping_) tell_(last_);
}

void FrameReader::skip(std::string problem) {
  skipping_ = true;
  take({Kind::malformed, passed_ + at_, 1, std::move(problem)});
}

void FrameReader::skipOn() {
  if (beginsAt(at_, 1)) {
    skipping_ = false;
    return tell_(last_);
  }
  ++at_;
  ++last_.size;
}

void FrameReader::next() {
  const auto type = buffer_[at_];
  if (const auto size = consoleSize(type)) return take({Kind::console, passed_ + at_, size});
  messageOf(type) ? readFrame(type) : skip(fmt::format("{} is no command type", type));
}

/// Of a letter of the device's console and what belongs to it; 0 for anything else.
std::size_t FrameReader::consoleSize(std::uint8_t type) const {
  if (direction_ == StreamDirection::fromPhone) return 0;
  if (type == 'b' || type == 'k' || type == 'q') return std::min<std::size_t>(2, left(at_));
  if (type != 'l' || left(at_) < 4) return 0;
  const auto size = 4 + buffer_[at_ + 2] * std::size_t{256} + buffer_[at_ + 3];
  return size <= left(at_) ? size : 0;
}

void FrameReader::readFrame(std::uint8_t type) {
  const auto header = headerAt(at_);
  if (!header) return skip(fmt::format("the frame's header ends after {} of 3 bytes", left(at_)));
  if (!isWholeAt(at_, *header)) {
    return skip(fmt::format("the payload ends after {} of {} bytes", left(at_) - headerSize,
                            header->length));
  }
  const auto command = nameOf(static_cast<CommandType::Type>(type));
  const auto size = headerSize + header->length;
  if (auto message = parse(at_, *header)) {
    return take({Kind::frame, passed_ + at_, size, objection(*header, command), command,
                 std::move(message)});
  }
  auto problem = fmt::format("the payload is no {} message", command);
  const auto behind = at_ + size;
  if (behind != buffer_.size() && !beginsAt(behind, 0)) return skip(std::move(problem));
  take({Kind::malformed, passed_ + at_, size, std::move(problem)});
}

/// What the direction does not allow.
std::string FrameReader::objection(const Header& header, const std::string& command) const {
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

std::optional<FrameReader::Header> FrameReader::headerAt(std::size_t at) const {
  if (left(at) < headerSize) return std::nullopt;
  return Header{buffer_[at], buffer_[at + 1] * std::size_t{256} + buffer_[at + 2]};
}

bool FrameReader::isWholeAt(std::size_t at, const Header& header) const {
  return left(at) >= headerSize + header.length;
}

/// The frame's message; null where the type is none or the payload does not parse.
std::shared_ptr<google::protobuf::Message> FrameReader::parse(std::size_t at,
                                                              const Header& header) const {
  auto message = messageOf(header.type);
  const auto* payload = buffer_.data() + at + headerSize;
  const auto size = static_cast<int>(header.length);
  return message && message->ParseFromArray(payload, size) ? message : nullptr;
}

/// Whether a whole and sound frame begins here, of a length that is looked for.
bool FrameReader::beginsAt(std::size_t at, std::size_t shortest) const {
  const auto header = headerAt(at);
  return header && header->length >= shortest && header->length <= longestSearched &&
         isWholeAt(at, *header) && parse(at, *header);
}

}  // namespace tandrell
