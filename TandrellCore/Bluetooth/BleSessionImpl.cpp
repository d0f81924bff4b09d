#include <TandrellCore/Bluetooth/BleSessionImpl.h>
#include <TandrellCore/Utility/Logger.h>

namespace tandrell {
namespace {

constexpr SourceLog log("Bluetooth/BleSession");

}  // namespace

BleSessionImpl::BleSessionImpl(const Environment& environment,
                               std::weak_ptr<BleSessionDelegate> delegate, Uuid serviceUUID)
    : environment_(environment), delegate_(std::move(delegate)), serviceUUID_(serviceUUID) {}

BleSession& BleSessionImpl::start() {
  if (const auto delegate = delegate_.lock()) delegate->startScan();
  return *this;
}

BleSession& BleSessionImpl::reconnectDuration(std::optional<Duration> duration) {
  reconnectDuration_ = duration ? duration->count() : never;
  return *this;
}

BleSession& BleSessionImpl::onEvent(EventHandler handler) {
  auto installed = handler ? std::make_shared<Handler>(std::move(handler)) : nullptr;
  const auto delegate = delegate_.lock();
  if (!delegate) {
    installHandler(std::move(installed));
    return *this;
  }
  delegate->centralQueue()->syncBarrier([&] {
    installHandler(std::move(installed));
    for (const auto& event : std::exchange(cachedEvents_, {})) eventDidOccur(event);
  });
  return *this;
}

void BleSessionImpl::installHandler(HandlerPtr handler) {
  if (exchangeHandler(std::move(handler))) {
    log.error("onEvent(_:)",
              [] { return "onEvent: already configured. Overwriting previous callback"; });
  }
}

BleSessionImpl::HandlerPtr BleSessionImpl::exchangeHandler(HandlerPtr handler) {
  const std::lock_guard lock(handlerMutex_);
  return std::exchange(eventHandler_, std::move(handler));
}

void BleSessionImpl::disposeEventHandler() {
  if (const auto handler = exchangeHandler(nullptr)) handler->end();
}

Promise<Data> BleSessionImpl::writeData(const Uuid& charUUID, Data data) {
  const auto delegate = delegate_.lock();
  if (!delegate) {
    log.error("writeData(_:data:)", [] { return "writeData: delegate nil"; });
    return Promise<Data>::rejected(environment_.mainQueue(), BleError::peripheralNotFound);
  }
  Promise<Data> written(environment_.mainQueue());
  delegate->centralQueue()->asyncBarrier([self = shared_from_this(), delegate, charUUID,
                                          data = std::move(data),
                                          written] { self->queueWrite(charUUID, data, written); });
  return written;
}

void BleSessionImpl::queueWrite(const Uuid& charUUID, const Data& data,
                                const Promise<Data>& written) {
  const auto queued = writeTaskQueue().queue(
      [weak = weak_from_this(), charUUID, data](const Promise<Data>& promise) {
        if (const auto self = weak.lock()) self->startWrite(charUUID, data, promise);
      });
  observeWriteErrors(queued);
  queued.forwardTo(written);
}

void BleSessionImpl::startWrite(const Uuid& charUUID, const Data& data,
                                const Promise<Data>& promise) {
  // The queue starts a task again also where nothing was cut off, or its outcome is known by now.
  const bool underWay = attempt_ && attempt_->isPending();
  if (underWay || !promise.isPending()) return;
  log.debug("writeData(_:data:)", [] { return "writeData: task start"; });
  // It waits for the link, whose return starts the task again.
  if (pausedPeripheral_) return;
  const auto delegate = delegate_.lock();
  if (!delegate) {
    log.error("writeData(_:data:)", [] { return "writeData: delegate nil"; });
    promise.reject(BleError::peripheralNotFound);
    return;
  }
  // A promise of its own for every attempt: what is left of an earlier one cannot settle this one.
  Promise<Data> attempt(environment_.mainQueue());
  attempt.forwardTo(promise);
  attempt_ = attempt;
  delegate->writeForSession(serviceUUID_, charUUID, data, attempt);
}

void BleSessionImpl::observeWriteErrors(const Promise<Data>& queued) {
  queued.onError([weak = weak_from_this()](const Error& error) {
    if (error != Error(CentralError::uuidNotAllowed)) return;
    log.debug("writeData(_:data:)", [] { return "writeData: did receive uuidNotAllowed error"; });
    const auto self = weak.lock();
    const auto delegate = self ? self->delegate_.lock() : nullptr;
    if (!delegate) return;
    delegate->centralQueue()->asyncBarrier(
        [self] { self->didErrorDuringWrite(BleWriteError::expiredUUID); });
  });
}

void BleSessionImpl::reconnect() {
  const auto delegate = delegate_.lock();
  if (!delegate) {
    log.error("reconnect()", [] { return "reconnect: delegate nil"; });
    return;
  }
  delegate->centralQueue()->asyncBarrier([self = shared_from_this(), delegate] {
    self->invalidateDisconnectTimer();  // it must not end the link that comes
    self->pausedPeripheral_.reset();
    self->isTerminated_ = false;
    delegate->startScan();
  });
}

void BleSessionImpl::disconnect() {
  const auto delegate = delegate_.lock();
  if (!delegate) {
    log.error("disconnect()", [] { return "disconnect: delegate nil"; });
    return;
  }
  delegate->centralQueue()->asyncBarrier([self = shared_from_this(), delegate] {
    self->isTerminated_ = true;
    delegate->disconnectPeripheral(self->serviceUUID_);
  });
}

void BleSessionImpl::didDiscover(const std::shared_ptr<CentralManager>& centralManager,
                                 const PeripheralPtr& peripheral) {
  log.debug("didDiscover(centralManager:peripheral:)", [&] {
    return fmt::format("didDiscover: peripheralId={}", peripheral->identifier().text());
  });
  notifiedOfDiscovery_ = true;
  eventDidOccur(BleDiscoverEvent{centralManager, peripheral});
}

void BleSessionImpl::didConnect(const std::shared_ptr<CentralManager>& centralManager,
                                const PeripheralPtr& peripheral) {
  log.debug("didConnect(centralManager:peripheral:)", [&] {
    return fmt::format("didConnect: serviceId={}; peripheralId={}", serviceUUID_.text(),
                       peripheral->identifier().text());
  });
  invalidateDisconnectTimer();
  pausedPeripheral_.reset();
  if (!notifiedOfDiscovery_) didDiscover(centralManager, peripheral);
  scanning_ = false;
  connected_ = true;
  eventDidOccur(BleConnectEvent{});
  if (writeTaskQueue_) writeTaskQueue_->retryActiveTask();
}

void BleSessionImpl::didPause(const Uuid& peripheralId) {
  constexpr std::string_view operation = "didPause(peripheralId:)";
  if (!hasGracePeriod()) {
    log.error(operation,
              [] { return "didPause should only be called when reconnectDuration has been set"; });
    return;
  }
  log.debug(operation, [&] {
    return fmt::format("didPause: serviceId={}; peripheralId={}", serviceUUID_.text(),
                       peripheralId.text());
  });
  connected_ = false;
  attempt_.reset();
  pausedPeripheral_ = peripheralId;
  eventDidOccur(BlePauseEvent{});
  if (const auto delegate = delegate_.lock()) {
    startDisconnectTimer(delegate->centralQueue(), peripheralId);
  }
}

void BleSessionImpl::didDisconnect(const std::string& peripheralId) {
  log.debug("didDisconnect(peripheralId:)", [&] {
    return fmt::format("didDisconnect: serviceId={}; peripheralId={}", serviceUUID_.text(),
                       peripheralId);
  });
  // The end that a running grace period would bring; after an error it still comes.
  if (const auto timer = std::exchange(disconnectTimerWorkItem_, nullptr)) timer->cancel();
  handleTermination(BleError::peripheralDisconnected);
  eventDidOccur(BleDisconnectEvent{});
}

void BleSessionImpl::didErrorDuringWrite(BleWriteError error) {
  log.debug("didErrorDuringWrite(error:)", [&] {
    return fmt::format("didErrorDuringWrite: serviceId={}; error={}", serviceUUID_.text(),
                       Error(error).description());
  });
  eventDidOccur(BleWriteErrorEvent{error});
}

void BleSessionImpl::didError(const std::optional<Uuid>& peripheralId, BleError error) {
  log.debug("didError(peripheralId:error:)", [&] {
    return fmt::format("didError: serviceId={}; peripheralId={}; error={}", serviceUUID_.text(),
                       peripheralId ? peripheralId->text() : "nil", Error(error).description());
  });
  handleTermination(error);
  eventDidOccur(BleErrorEvent{error});
}

void BleSessionImpl::didReceiveData(const Uuid& charUUID, Data data) {
  eventDidOccur(BleReceiveEvent{charUUID, std::move(data)});
}

BleSessionImpl::HandlerPtr BleSessionImpl::eventHandler() const {
  const std::lock_guard lock(handlerMutex_);
  return eventHandler_;
}

void BleSessionImpl::eventDidOccur(const BleEvent& event) {
  const auto handler = eventHandler();
  if (handler && handler->call(event)) return;
  log.verbose("eventDidOccur(_:)",
              [&] { return fmt::format("eventDidOccur: event cached; event={}", nameOf(event)); });
  addCachedEvent(event);
}

void BleSessionImpl::addCachedEvent(const BleEvent& event) { cachedEvents_.push_back(event); }

void BleSessionImpl::handleTermination(const Error& taskError) {
  attempt_.reset();
  // Not made here: the end of a grace period may outlive the central.
  if (writeTaskQueue_) writeTaskQueue_->clear(taskError);
  notifiedOfDiscovery_ = false;
  // Data that arrived before there was a handler is never lost; what was said of the link is stale.
  std::erase_if(cachedEvents_, [](const BleEvent& event) {
    return !std::holds_alternative<BleReceiveEvent>(event);
  });
  connected_ = false;
  scanning_ = false;
  isTerminated_ = true;
  pausedPeripheral_.reset();
}

void BleSessionImpl::startDisconnectTimer(const QueuePtr& queue, const Uuid& peripheralId) {
  // A link that fails again before the service was usable has not come back: the time counts from
  // the first drop, or a device at the edge of reach would never be given up.
  if (disconnectTimerWorkItem_) return;
  log.debug("startDisconnectTimer(queue:peripheralId:)", [&] {
    return fmt::format("startDisconnectTimer: timer started; serviceId={}", serviceUUID_.text());
  });
  disconnectTimerWorkItem_ = queue->asyncBarrierAfter(
      Duration(reconnectDuration_.load()), [weak = weak_from_this(), peripheralId] {
        if (const auto self = weak.lock()) self->disconnectTimerDidFire(peripheralId);
      });
}

void BleSessionImpl::disconnectTimerDidFire(const Uuid& peripheralId) {
  log.debug("startDisconnectTimer(queue:peripheralId:)", [&] {
    return fmt::format("startDisconnectTimer: disconnect fired; serviceId={}", serviceUUID_.text());
  });
  didDisconnect(peripheralId.text());
  if (const auto delegate = delegate_.lock()) delegate->sessionDidExpire(serviceUUID_);
}

void BleSessionImpl::invalidateDisconnectTimer() {
  const auto timer = std::exchange(disconnectTimerWorkItem_, nullptr);
  if (!timer) return;
  timer->cancel();
  log.debug("invalidateDisconnectTimer()",
            [] { return "invalidateDisconnectTimer: disconnect invalidated"; });
}

TaskQueue<Data>& BleSessionImpl::writeTaskQueue() {
  if (!writeTaskQueue_) {
    const auto delegate = delegate_.lock();
    if (!delegate) fatalError("writeTaskQueue: delegate nil");
    writeTaskQueue_ = TaskQueue<Data>::make(environment_, delegate->centralQueue());
  }
  return *writeTaskQueue_;
}

}  // namespace tandrell
