#pragma once

#include <TandrellCore/Async/Promise.h>
#include <TandrellCore/Bluetooth/BlePeripheral.h>

#include <chrono>
#include <functional>
#include <memory>

namespace tandrell {

/// What becomes of the promise of a write whose record lets go of it: rejected with
/// `BleError::peripheralDisconnected`, or left to whoever sends the write again.
enum class WhenCut { reject, leavePending };

/// One write on its way to a peripheral: the bytes go out in chunks, each after the one before was
/// acknowledged and a pause. Owned by its record through `BlePeripheral::didWriteValueCallback` for
/// as long as it is the record's current write; used on the central's queue only. When the record
/// lets go of it, nothing more is written.
class ChunkedWriteImpl : public std::enable_shared_from_this<ChunkedWriteImpl> {
 public:
  /// What one write request carries at the smallest transfer size that Bluetooth LE allows.
  static constexpr std::size_t chunkSize = 20;
  /// The device takes a chunk at most this often.
  static constexpr std::chrono::milliseconds pause{300};

  /// Told how many bytes have been acknowledged, after each chunk.
  using Progress = std::function<void(std::size_t)>;

  /// Installs a new write on the record, which must have none in flight, and writes its first
  /// chunk. The promise is fulfilled with the whole bytes or rejected with the platform's error.
  static void start(const std::shared_ptr<BlePeripheral>& record, const QueuePtr& centralQueue,
                    const GattCharacteristic& characteristic, Data data, Promise<Data> promise,
                    WhenCut whenCut, Progress progress);
  ~ChunkedWriteImpl();
  ChunkedWriteImpl(const ChunkedWriteImpl&) = delete;
  ChunkedWriteImpl& operator=(const ChunkedWriteImpl&) = delete;

 private:
  ChunkedWriteImpl(const std::shared_ptr<BlePeripheral>& record, QueuePtr centralQueue,
                   GattCharacteristic characteristic, Data data, Promise<Data> promise,
                   WhenCut whenCut, Progress progress);

  void writeNextChunk();
  void writeNextChunkAfterPause();
  void didWriteValue(const std::optional<Error>& error);
  void fail(const Error& error);
  void succeed();

  const std::weak_ptr<BlePeripheral> record_;
  const QueuePtr centralQueue_;
  const GattCharacteristic characteristic_;
  const Data data_;
  const Promise<Data> promise_;
  const WhenCut whenCut_;
  const Progress progress_;
  const std::vector<DataView> chunks_;  // they look into `data_`
  std::size_t next_ = 0;                // the index of the next chunk to write
  bool inFlight_ = false;               // the chunk before it has no answer yet
};

}  // namespace tandrell
