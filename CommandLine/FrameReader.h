#pragma once

#include <TandrellCore/Platform/Data.h>

#include <google/protobuf/message.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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

/// Takes a whole stream apart. The link's own parser cannot serve here: it drops what it does not
/// understand, and counts no offsets.
///
/// What makes no sense is one piece up to the place where reading goes on: behind a frame whose
/// payload is damaged, if a frame begins there or the stream ends; otherwise at the next place
/// where a whole frame with a sound payload of 1 to 400 bytes begins. Takes time in proportion to
/// the stream.
std::vector<StreamPiece> readStream(DataView stream, StreamDirection direction);

}  // namespace tandrell
