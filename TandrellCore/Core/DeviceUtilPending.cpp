#include <TandrellCore/Core/DeviceUtilImpl.h>
#include <TandrellCore/Utility/Logger.h>

// The book of the parcels that were handed to the device, and of those that wait for their turn.
namespace tandrell {
namespace {

constexpr SourceLog log("DeviceUtil");

}  // namespace

bool DeviceUtilImpl::isFinal(ParcelStatus::Type status) {
  return status == ParcelStatus::delivered || status == ParcelStatus::error;
}

void DeviceUtilImpl::addPendingParcel(const ::Parcel& parcel) {
  auto pending = pendingParcels_->value().value_or(PendingParcels());
  pending.insert_or_assign(parcel.id(), makePendingParcel(parcel, environment_.wallClock->date()));
  pendingParcels_->setValue(pending);
}

void DeviceUtilImpl::updatePendingParcel(const ::Parcel& parcel) {
  constexpr std::string_view operation = "updatePendingParcel(_:)";
  auto pending = pendingParcels_->value().value_or(PendingParcels());
  const auto record = pending.find(parcel.id());
  if (record == pending.end()) return;
  if (isFinal(parcel.status())) {
    log.debug(operation, [&] {
      return fmt::format("updatePendingParcel: removing parcel; id={}", parcel.id());
    });
    pending.erase(record);
  } else {
    log.debug(operation, [&] {
      return fmt::format("updatePendingParcel: updating parcel; id={}", parcel.id());
    });
    record->second.date = environment_.wallClock->date();
  }
  pendingParcels_->setValue(pending);
}

std::size_t DeviceUtilImpl::firstWaitingTask() const { return taskSafe_.waitsForSession ? 0 : 1; }

void DeviceUtilImpl::reloadWaitingParcels() {
  PendingParcels waiting;
  const Date now = environment_.wallClock->date();
  const auto& tasks = taskSafe_.taskQueue;
  for (std::size_t i = firstWaitingTask(); i < tasks.size(); ++i) {
    waiting.insert_or_assign(tasks[i].parcel.id(), makePendingParcel(tasks[i].parcel, now));
  }
  waitingParcels_->setValue(waiting);
}

void DeviceUtilImpl::errorWaitingParcels() {
  if (claimBook("errorWaitingParcels()")) return;
  onTaskStore([](DeviceUtilImpl& self) { self.reportWaitingParcels(); });
}

void DeviceUtilImpl::reportWaitingParcels() {
  const auto waiting = waitingParcels_->value();
  if (!waiting) return;
  for (const auto& [id, record] : *waiting) parcel_.publish(buildErrorParcelFromPending(record));
  waitingParcels_->clear();
}

void DeviceUtilImpl::startPendingParcelsTimer() {
  static constexpr std::string_view operation = "startPendingParcelsTimer()";
  // An item that has run still counts: only a pause or a reset makes room for the next one.
  if (pendingParcelDispatchWorkItem_ && !pendingParcelDispatchWorkItem_->isCancelled()) {
    log.debug(operation, [] { return "startPendingParcelsTimer: skip"; });
    return;
  }
  log.debug(operation, [] {
    return fmt::format("startPendingParcelsTimer: delay for {}s", PendingParcelTimerDelay.count());
  });
  pendingParcelDispatchWorkItem_ =
      taskSafe_.queue()->asyncBarrierAfter(PendingParcelTimerDelay, [weak = weak_from_this()] {
        log.debug(operation, [] { return "startPendingParcelsTimer: timer fired"; });
        const auto self = weak.lock();
        if (!self) return;
        self->timeoutPendingParcels();
        self->noteRecording();
      });
}

void DeviceUtilImpl::cancelPendingParcelsTimer() {
  const auto timer = std::exchange(pendingParcelDispatchWorkItem_, nullptr);
  if (!timer) return;
  log.debug("cancelPendingParcelsTimer()",
            [] { return "cancelPendingParcelsTimer: timer cancelled"; });
  timer->cancel();
}

void DeviceUtilImpl::timeoutPendingParcels() {
  constexpr std::string_view operation = "timeoutPendingParcels()";
  const auto pending = pendingParcels_->value();
  if (!pending || pending->empty()) {
    log.debug(operation, [] { return "timeoutPendingParcels: skip"; });
    return;
  }
  log.debug(operation, [] { return "timeoutPendingParcels: start"; });
  const PendingParcels timedOut = selectTimedOut(*pending);
  bool activeTaskCancelled = false;
  for (const auto& [id, record] : timedOut) activeTaskCancelled |= timeoutParcel(record);
  if (activeTaskCancelled && !taskSafe_.taskQueue.empty()) {
    log.debug(operation,
              [] { return "timeoutPendingParcels: active task cancelled. Starting next task"; });
    startNextTask();
  }
  if (taskSafe_.taskQueue.empty()) didEmptyTaskQueue();
  log.debug(operation, [&] {
    return fmt::format("timeoutPendingParcels: did complete timing out parcels; count={}",
                       timedOut.size());
  });
  forgetTimedOut(timedOut);
}

PendingParcels DeviceUtilImpl::selectTimedOut(const PendingParcels& pending) const {
  PendingParcels timedOut;
  const double now = environment_.wallClock->date().timeIntervalSinceReferenceDate();
  for (const auto& [id, record] : pending) {
    const double age = now - record.date.timeIntervalSinceReferenceDate();
    if (age > toSeconds(ParcelTimeoutDuration)) timedOut.emplace(id, record);
  }
  return timedOut;
}

void DeviceUtilImpl::forgetTimedOut(const PendingParcels& timedOut) {
  // Read again: the next task may have been started meanwhile, and its record must stay.
  auto remaining = pendingParcels_->value().value_or(PendingParcels());
  std::erase_if(remaining, [&](const auto& entry) { return timedOut.contains(entry.first); });
  pendingParcels_->setValue(remaining);
  if (remaining.empty()) return;
  log.debug("timeoutPendingParcels()", [&] {
    return fmt::format("timeoutPendingParcels: will try again after delay; remainingCount={}",
                       remaining.size());
  });
  startPendingParcelsTimer();
}

bool DeviceUtilImpl::timeoutParcel(const PendingParcel& pending) {
  constexpr std::string_view operation = "timeoutPendingParcels()";
  log.debug(operation, [&] {
    return fmt::format("timeoutPendingParcels: did time out parcel; parcelId={}", pending.parcelId);
  });
  parcel_.publish(buildErrorParcelFromPending(pending));
  const auto index = indexOfTask(pending.parcelId);
  if (!index) return false;
  removeTask(*index);
  log.debug(operation, [&] {
    return fmt::format("timeoutPendingParcels: cancelled task; idx={}; parcelId={}", *index,
                       pending.parcelId);
  });
  return *index == 0;
}

void DeviceUtilImpl::didReceiveParcelFromDevice(const ::Parcel& parcel) {
  log.debug("didReceiveParcelFromDevice(_:)", [&] {
    return fmt::format("didReceiveParcelFromDevice: id={}; packageType={}; status={}", parcel.id(),
                       nameOf(parcel.package().type()), nameOf(parcel.status()));
  });
  updatePendingParcel(parcel);
  parcel_.publish(parcel);
}

}  // namespace tandrell
