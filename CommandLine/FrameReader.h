#pragma once

#include <TandrellCore/Platform/Data.h>

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tandrell {

/// Which way a stream of the device link went. Frames look the same in both.
enum class StreamDirection { either, fromDevice, fromPhone };

/// A run of bytes of a stream, and what it is. The pieces of a stream cover it without a gap.
struct StreamPiece {
  enum class Kind {
    frame,     ///< a command; where something is wrong with it, `problem` says what
    console,   ///< a letter of the device's console and what follows it; phones skip these
    malformed  ///< no frame; `problem` says why
  };
  Kind kind = Kind::malformed;
  std::size_t offset = 0;
  std::size_t size = 0;
  std::string problem = {};
  std::string command = {};                                       ///< of a frame: "parcel"
  std::shared_ptr<const google::protobuf::Message> message = {};  ///< of a frame
};

/// Takes a stream apart as it comes, in memory that does not grow with it. The link's own parser
/// cannot serve here: it drops what it does not understand, and counts no offsets.
///
/// What makes no sense is one piece up to the place where reading goes on: behind a frame whose
/// payload is damaged, if a frame begins there or the stream ends; otherwise at the next place
/// where a whole frame with a sound payload of 1 to 400 bytes begins. Takes time in proportion to
/// the stream.
class FrameReader {
 public:
  /// `tell` is called for one piece after another. Frames of the same bytes in a row have the same
  /// message, and cost little.
  using Tell = std::function<void(const StreamPiece&)>;
  FrameReader(StreamDirection direction, Tell tell)
      : direction_(direction), tell_(std::move(tell)) {}

  /// The next bytes of the stream. Tells what is certain, whatever follows.
  void read(DataView bytes);
  /// The stream is over: tells the rest.
  void end();

 private:
  struct Header {
    std::uint8_t type = 0;
    std::size_t length = 0;
  };

  void proceed();
  bool isCertain() const;
  bool repeatsLast() const;
  void take(StreamPiece piece);
  void skip(std::string problem);
  void skipOn();

  void next();
  void readFrame(std::uint8_t type);
  std::size_t consoleSize(std::uint8_t type) const;
  std::string objection(const Header& header, const std::string& command) const;
  std::optional<Header> headerAt(std::size_t at) const;
  bool isWholeAt(std::size_t at, const Header& header) const;
  std::shared_ptr<google::protobuf::Message> parse(std::size_t at, const Header& header) const;
  bool beginsAt(std::size_t at, std::size_t shortest) const;
  std::size_t left(std::size_t at) const { return buffer_.size() - at; }

  const StreamDirection direction_;
  const Tell tell_;
  Data buffer_;
  std::size_t at_ = 0;      // in the buffer
  std::size_t passed_ = 0;  // of the stream, before the buffer
  bool ended_ = false;
  bool skipping_ = false;  // the last piece goes on
  StreamPiece last_;
};

}  // namespace tandrell
