#include <TandrellCore/Bluetooth/BleError.h>
#include <TandrellCore/Bluetooth/ChunkedWriteImpl.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Logger.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

constexpr SourceLog log("Bluetooth/BleUtility");
constexpr std::string_view operation = "writeData(serviceUUID:charUUID:data:promise:)";

}  // namespace

void ChunkedWriteImpl::start(const std::shared_ptr<BlePeripheral>& record,
                             const QueuePtr& centralQueue, const GattCharacteristic& characteristic,
                             Data data, Promise<Data> promise, WhenCut whenCut, Progress progress) {
  const std::shared_ptr<ChunkedWriteImpl> write(
      new ChunkedWriteImpl(record, centralQueue, characteristic, std::move(data),
                           std::move(promise), whenCut, std::move(progress)));
  record->didWriteValueCallback = [write](const auto& error) { write->didWriteValue(error); };
  write->writeNextChunk();
}

ChunkedWriteImpl::ChunkedWriteImpl(const std::shared_ptr<BlePeripheral>& record,
                                   QueuePtr centralQueue, GattCharacteristic characteristic,
                                   Data data, Promise<Data> promise, WhenCut whenCut,
                                   Progress progress)
    : record_(record),
      centralQueue_(std::move(centralQueue)),
      characteristic_(characteristic),
      data_(std::move(data)),
      promise_(std::move(promise)),
      whenCut_(whenCut),
      progress_(std::move(progress)),
      chunks_(chunk(data_, chunkSize)) {}

ChunkedWriteImpl::~ChunkedWriteImpl() {
  if (whenCut_ == WhenCut::leavePending || !promise_.isPending()) return;
  log.debug(operation, [] { return "writeData: disconnect occurred"; });
  promise_.reject(BleError::peripheralDisconnected);
}

void ChunkedWriteImpl::writeNextChunk() {
  const auto record = record_.lock();
  if (!record) return;
  inFlight_ = true;
  record->peripheral->writeValue(copyOf(chunks_[next_++]), characteristic_,
                                 WriteType::withResponse);
}

void ChunkedWriteImpl::writeNextChunkAfterPause() {
  // Weak: when the record has let go of this write in the meantime, the chunk stays unwritten.
  centralQueue_->asyncBarrierAfter(pause, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->writeNextChunk();
  });
}

void ChunkedWriteImpl::didWriteValue(const std::optional<Error>& error) {
  if (!std::exchange(inFlight_, false)) {
    log.error(operation, [&] {
      return "didWriteValue: ignored, no chunk is in flight; error=" + describe(error);
    });
    return;
  }
  if (error) {
    fail(*error);
    return;
  }
  progress_(std::min(next_ * chunkSize, data_.size()));
  if (next_ == chunks_.size()) {
    succeed();
  } else {
    writeNextChunkAfterPause();
  }
}

void ChunkedWriteImpl::fail(const Error& error) {
  if (error == Error(CentralError::peripheralDisconnected)) {
    log.debug(operation, [] { return "writeData: disconnect occurred"; });
  } else {
    log.error(operation, [&] { return "didWriteValue: received error; " + error.description(); });
  }
  if (const auto record = record_.lock()) record->didWriteValueCallback = nullptr;
  promise_.reject(error);
}

void ChunkedWriteImpl::succeed() {
  log.debug(operation, [&] { return "didWriteValue: send complete; data=" + debugString(data_); });
  if (const auto record = record_.lock()) record->didWriteValueCallback = nullptr;
  promise_.fulfill(data_);
}

}  // namespace tandrell
