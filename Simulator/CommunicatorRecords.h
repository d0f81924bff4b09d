#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Date.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Names.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tandrell {

/// What a communicator met, in order; times are those of the radio's dispatcher.
struct CommunicatorRecords {
  /// A write as it arrived, also where a fault cut it short or refused it.
  struct Chunk {
    Duration time;
    Data bytes;
  };
  /// A complete command.
  struct Frame {
    Duration time;
    std::uint8_t type;
    Data payload;
  };
  /// A parcel that the device took for transmission.
  struct ReceivedParcel {
    Duration time;
    Parcel parcel;
  };
  /// A complete frame that made no sense, or the bytes of one that was never completed.
  struct MalformedFrame {
    Duration time;
    std::string reason;
    Data bytes;
  };

  /// Everything since the device was made, restarts included.
  std::vector<Chunk> chunks;
  std::vector<Frame> frames;
  std::vector<ReceivedParcel> parcels;
  std::vector<SettingsCommand> settings;
  std::vector<MalformedFrame> malformed;
  std::size_t connections = 0;

  /// The bytes of all chunks, one after the other.
  Data written() const {
    Data bytes;
    for (const auto& chunk : chunks) {
      bytes.insert(bytes.end(), chunk.bytes.begin(), chunk.bytes.end());
    }
    return bytes;
  }
};

/// Records that one queue writes and any thread reads.
class TANDRELL_API SharedRecords {
 public:
  /// The records as they are now.
  CommunicatorRecords snapshot() const {
    const std::lock_guard lock(mutex_);
    return records_;
  }

  /// Calls `change` with the records, under the lock.
  template <class Change>
  void change(Change change) {
    const std::lock_guard lock(mutex_);
    change(records_);
  }

 private:
  mutable std::mutex mutex_;
  CommunicatorRecords records_;
};

}  // namespace tandrell
