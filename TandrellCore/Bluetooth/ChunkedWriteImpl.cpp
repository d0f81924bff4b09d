#include <TandrellCore/Bluetooth/ChunkedWriteImpl.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Logger.h>

namespace tandrell {
namespace {

constexpr SourceLog log("Bluetooth/BleUtility");
constexpr std::string_view operation = "writeData(serviceUUID:charUUID:data:promise:)";

}  // namespace

void ChunkedWriteImpl::start(const std::shared_ptr<BlePeripheral>& record,
                             const QueuePtr& centralQueue, const GattCharacteristic& characteristic,
                             Data data, Promise<Data> promise, Progress progress) {
  const std::shared_ptr<ChunkedWriteImpl> write(
      new ChunkedWriteImpl(record, centralQueue, characteristic, std::move(data),
                           std::move(promise), std::move(progress)));
  record->didWriteValueCallback = [write](const auto& error) { write->didWriteValue(error); };
  write->writeNextChunk();
}

ChunkedWriteImpl::ChunkedWriteImpl(const std::shared_ptr<BlePeripheral>& record,
                                   QueuePtr centralQueue, GattCharacteristic characteristic,
                                   Data data, Promise<Data> promise, Progress progress)
    : record_(record),
      centralQueue_(std::move(centralQueue)),
      characteristic_(characteristic),
      data_(std::move(data)),
      promise_(std::move(promise)),
      progress_(std::move(progress)),
      chunks_(chunk(data_, chunkSize)) {}

void ChunkedWriteImpl::writeNextChunk() {
  const auto record = record_.lock();
  if (!record) return;
  const Data next = copyOf(chunks_.front());
  chunks_.erase(chunks_.begin());
  record->peripheral->writeValue(next, characteristic_, WriteType::withResponse);
}

void ChunkedWriteImpl::writeNextChunkAfterPause() {
  // Weak: when the record has let go of this write in the meantime, the chunk stays unwritten.
  centralQueue_->asyncBarrierAfter(pause, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->writeNextChunk();
  });
}

void ChunkedWriteImpl::didWriteValue(const std::optional<Error>& error) {
  if (error) {
    fail(*error);
    return;
  }
  progress_(data_.size() - bytesLeft());
  if (chunks_.empty()) {
    succeed();
  } else {
    writeNextChunkAfterPause();
  }
}

std::size_t ChunkedWriteImpl::bytesLeft() const {
  return chunks_.empty()
             ? 0
             : static_cast<std::size_t>(data_.data() + data_.size() - chunks_.front().data());
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
