#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Core/DeviceUtilImpl.h>
#include <TandrellCore/Core/MergeTasksImpl.h>
#include <TandrellCore/Proto/Wire.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Logger.h>
#include <TandrellCore/Utility/Overloaded.h>

#include <algorithm>

// The link, its session and its queue of tasks.
namespace tandrell {
namespace {

constexpr SourceLog log("DeviceUtil");

}  // namespace

std::shared_ptr<DeviceUtil> makeDeviceUtil(const Environment& environment,
                                           std::shared_ptr<BleUtility> ble) {
  return std::make_shared<DeviceUtilImpl>(environment, std::move(ble));
}

const std::shared_ptr<DeviceUtil>& HasDeviceUtil::deviceUtil() const {
  static const auto* shared = new std::shared_ptr<DeviceUtil>(
      makeDeviceUtil(Environment::installed(), BleConfig::bleUtility()));
  return *shared;
}

DeviceUtilImpl::DeviceUtilImpl(const Environment& environment, std::shared_ptr<BleUtility> ble)
    : environment_(environment),
      ble_(std::move(ble)),
      pendingParcels_(UserDefault<PendingParcels>::with<CodableDefaultMapper>(
          "DeviceUtil.pendingParcels", environment.userDefaults)),
      waitingParcels_(AppDefault<PendingParcels>::with<CodableDefaultMapper>(
          "DeviceUtil.waitingParcels", environment.userDefaults)),
      didRequestDeviceScan_(AppDefault<bool>::with<EligibleDefaultMapper>(
          "DeviceUtil.didRequestDeviceScan", environment.userDefaults)),
      taskSafe_(*environment.dispatcher, QualityOfService::userInitiated) {}

DeviceUtilImpl::~DeviceUtilImpl() = default;

void DeviceUtilImpl::onTaskStore(std::function<void(DeviceUtilImpl&)> block) {
  taskSafe_.write([weak = weak_from_this(), block = std::move(block)] {
    const auto self = weak.lock();
    if (!self) return;
    block(*self);
    self->noteRecording();
  });
}

std::optional<Error> DeviceUtilImpl::claimBook(std::string_view operation) {
  // Held while the store is asked, or two threads of this link would be each other's holder.
  const std::lock_guard lock(claimMutex_);
  if (claim_) return std::nullopt;
  const auto claimed = environment_.userDefaults->claim("DeviceUtil");
  if (claimed.isSuccess()) {
    claim_ = claimed.value();
    return std::nullopt;
  }
  log.error(operation,
            [&] { return "claimBook: refused; error=" + claimed.error().description(); });
  // A disk with no room for a lock keeps nobody from sending.
  const bool isHeld = claimed.error() == Error(ClaimError::held);
  return isHeld ? std::optional(claimed.error()) : std::nullopt;
}

void DeviceUtilImpl::noteRecording() {
  const auto problem = environment_.userDefaults->problem();
  if (isRecording_ == !problem) return;
  isRecording_ = !problem;
  if (problem) {
    log.error("noteRecording()", [&] {
      return "noteRecording: nothing is recorded; error=" + problem->description();
    });
  } else {
    log.warning("noteRecording()", [] { return "noteRecording: all is recorded again"; });
  }
}

std::shared_ptr<BleSession> DeviceUtilImpl::session() const {
  const std::lock_guard lock(mutex_);
  return bleSession_;
}

bool DeviceUtilImpl::adopt(const std::shared_ptr<BleSession>& session) {
  const std::lock_guard lock(mutex_);
  if (bleSession_) return false;
  bleSession_ = session;
  return true;
}

Promise<DeviceConnectionState> DeviceUtilImpl::makePendingScanPromise() {
  const std::lock_guard lock(mutex_);
  return pendingScanPromise_.emplace(environment_.mainQueue());
}

DeviceUtilImpl::ScanPromise DeviceUtilImpl::pendingScanPromise() const {
  const std::lock_guard lock(mutex_);
  return pendingScanPromise_;
}

Promise<DeviceConnectionState> DeviceUtilImpl::toggleScan() {
  if (const auto refusal = claimBook("toggleScan()")) {
    return Promise<DeviceConnectionState>::rejected(environment_.mainQueue(), *refusal);
  }
  const auto current = session();
  if (current && (current->scanning() || current->connected())) {
    current->disconnect();
    setRequestedScan(false);
    return Promise<DeviceConnectionState>::fulfilled(environment_.mainQueue(),
                                                     DeviceConnectionState::disconnected);
  }
  connectionState_.publish(DeviceConnectionState::scanning);
  const auto promise = makePendingScanPromise();
  if (current) {
    current->reconnect();
  } else {
    connectFirst();
  }
  setRequestedScan(true);
  return promise;
}

void DeviceUtilImpl::connectFirst() {
  const auto session = ble_->sessionForService(BleConfig::DeviceUUIDs::Service);
  if (adopt(session)) {
    listenTo(*session);
  } else {
    session->reconnect();  // another thread was first
  }
}

void DeviceUtilImpl::listenTo(BleSession& session) {
  session.start()
      .reconnectDuration(ReconnectGracePeriod)
      .onEvent([weak = weak_from_this()](const BleEvent& event) {
        if (const auto self = weak.lock()) self->handle(event);
      });
}

void DeviceUtilImpl::setRequestedScan(bool requested) {
  // The store may take its time, and the flag is to be stored even where the link goes meanwhile.
  taskSafe_.write([weak = weak_from_this(), flag = didRequestDeviceScan_, requested] {
    flag->setValue(requested);
    if (const auto self = weak.lock()) self->noteRecording();
  });
}

void DeviceUtilImpl::disconnect() {
  if (const auto current = session()) current->disconnect();
}

void DeviceUtilImpl::handle(const BleEvent& event) {
  using State = DeviceConnectionState;
  // The promise of now: an observer of the state may scan again before it is settled.
  const auto pending = pendingScanPromise();
  std::visit(Overloaded{[&](const BleConnectEvent&) { didConnect(pending); },
                        [&](const BleDisconnectEvent&) {
                          connectionState_.publish(State::disconnected);
                          reset();
                          if (pending) pending->fulfill(State::disconnected);
                        },
                        [&](const BlePauseEvent&) {
                          connectionState_.publish(State::scanning);
                          onTaskStore([](auto& self) { self.cancelPendingParcelsTimer(); });
                          didPause();
                        },
                        [&](const BleReceiveEvent& received) {
                          if (!commandParser_) commandParser_ = makeParser();
                          commandParser_->parseData(received.data);
                        },
                        [&](const BleErrorEvent& failed) {
                          connectionState_.publish(State::disconnected);
                          // Not every platform says of each link that it went with the radio.
                          if (commandParser_) commandParser_->reset();
                          if (pending) pending->reject(failed.error);
                        },
                        [&](const BleWriteErrorEvent& failed) {
                          if (failed.error != BleWriteError::expiredUUID) return;
                          log.debug("toggleScan()", [] {
                            return "onEvent: received expiredUUID - resetting connection";
                          });
                          resetConnection();
                        },
                        [](const auto&) {}},
             event);
}

void DeviceUtilImpl::didConnect(const ScanPromise& scan) {
  connectionState_.publish(DeviceConnectionState::connected);
  onTaskStore([scan](DeviceUtilImpl& self) {
    const auto pending = self.pendingParcels_->value();
    if (pending && !pending->empty()) self.startPendingParcelsTimer();
    if (self.activityState_.value() == DeviceActivityState::disconnected) {
      self.activityState_.publish(DeviceActivityState::listening);
    }
    self.initialTrackingState_.publish(DeviceTrackingState::disabled);
    if (scan) scan->fulfill(DeviceConnectionState::connected);
    if (self.taskSafe_.waitsForSession) self.startNextTask();
  });
}

void DeviceUtilImpl::didPause() {
  if (commandParser_) commandParser_->reset();
}

void DeviceUtilImpl::resetConnection() {
  environment_.mainQueue()->asyncAfter(ResetConnectionDelay, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->toggleScan();
  });
}

void DeviceUtilImpl::reset() {
  // Here and not with the tasks: the parser belongs to the central's queue.
  if (commandParser_) commandParser_->reset();
  onTaskStore([](DeviceUtilImpl& self) { self.resetTasks(); });
}

void DeviceUtilImpl::resetTasks() {
  log.verbose("reset()", [&] {
    return fmt::format("reset: error out remaining tasks; count={}", taskSafe_.taskQueue.size());
  });
  // A head in flight is left to the pending parcels.
  const std::size_t first = firstWaitingTask();
  const auto tasks = std::exchange(taskSafe_.taskQueue, {});
  for (std::size_t i = first; i < tasks.size(); ++i) {
    ::Parcel parcel = tasks[i].parcel;
    parcel.set_status(ParcelStatus::error);
    log.debug("reset()",
              [&] { return fmt::format("reset: did error out parcel; parcelId={}", parcel.id()); });
    parcel_.publish(std::move(parcel));
    tasks[i].completeWithError(DeviceError::transferAborted);
  }
  waitingParcels_->clear();
  taskSafe_.didStartTask = taskSafe_.waitsForSession = false;
  activityState_.publish(DeviceActivityState::disconnected);
  quality_.publish(0);
  firmwareVersion_.publish(std::nullopt);
  initialTrackingState_.publish(DeviceTrackingState::disconnected);
  battery_.publish(-1);
  imei_.publish("");
  settings_.publish(std::nullopt);
  wakeDate_.publish(std::nullopt);
  cancelPendingParcelsTimer();
}

Promise<::Parcel> DeviceUtilImpl::send(const ::Parcel& parcel, bool requiresTransmission) {
  if (!hasReadableContent(parcel.package())) {
    return Promise<::Parcel>::rejected(environment_.mainQueue(), CommonError::illegalArgument);
  }
  if (const auto refusal = claimBook("send(parcel:requiresTransmission:)")) {
    return Promise<::Parcel>::rejected(environment_.mainQueue(), *refusal);
  }
  if (!requiresTransmission) return sendWithoutTransmission(parcel);
  return queueTask({parcel, Promise<::Parcel>(environment_.mainQueue())});
}

Promise<::Parcel> DeviceUtilImpl::sendWithoutTransmission(const ::Parcel& parcel) {
  Promise<::Parcel> promise(environment_.mainQueue());
  const auto current = session();
  if (!current) {
    promise.reject(BleError::peripheralNotFound);
    return promise;
  }
  log.debug("send(parcel:requiresTransmission:)",
            [] { return "send: without transmission - start"; });
  current->writeData(BleConfig::DeviceUUIDs::ReceivingChar, prepareForWrite(parcel))
      .then([promise, parcel](const Data&) { promise.fulfill(parcel); })
      .onError([promise](const Error& error) { promise.reject(error); });
  return promise;
}

Promise<::Parcel> DeviceUtilImpl::queueTask(const ParcelTask& task) {
  onTaskStore([task](DeviceUtilImpl& self) { self.appendTask(task); });
  // As a barrier, because it edits the list.
  task.promise.onError(barrier(taskSafe_.queue()),
                       [weak = weak_from_this(), id = task.parcel.id()](const Error&) {
                         const auto self = weak.lock();
                         if (!self) return;
                         self->didFailTask(id);
                         self->noteRecording();
                       });
  return task.promise;
}

void DeviceUtilImpl::appendTask(const ParcelTask& task) {
  taskSafe_.taskQueue.push_back(task);
  log.debug("queueTask(_:)",
            [&] { return fmt::format("queueTask: count={}", taskSafe_.taskQueue.size()); });
  taskSafe_.taskQueue = mergeTasks(std::move(taskSafe_.taskQueue));
  if (taskSafe_.didStartTask) {
    reloadWaitingParcels();
    return;
  }
  taskSafe_.didStartTask = true;
  startNextTask();
}

void DeviceUtilImpl::didFailTask(std::uint32_t parcelId) {
  const auto index = indexOfTask(parcelId);
  if (!index) return;
  removeTask(*index);
  log.debug("queueTask(_:)", [&] {
    return fmt::format(
        "queueTask: error occurred during transfer. Task removed from queue; idx={}; taskCount={}",
        *index, taskSafe_.taskQueue.size());
  });
  if (*index == 0 && !taskSafe_.taskQueue.empty()) {
    startNextTask();
  } else {
    // Deliberately also for a task behind the head: the device counts as listening again.
    didEmptyTaskQueue();
  }
}

std::optional<std::size_t> DeviceUtilImpl::indexOfTask(std::uint32_t parcelId) const {
  const auto& tasks = taskSafe_.taskQueue;
  const auto task = std::find_if(tasks.begin(), tasks.end(), [&](const ParcelTask& candidate) {
    return candidate.parcel.id() == parcelId;
  });
  if (task == tasks.end()) return std::nullopt;
  return static_cast<std::size_t>(task - tasks.begin());
}

void DeviceUtilImpl::removeTask(std::size_t index) {
  taskSafe_.taskQueue.erase(taskSafe_.taskQueue.begin() + static_cast<std::ptrdiff_t>(index));
}

void DeviceUtilImpl::startNextTask() {
  constexpr std::string_view operation = "startNextTask()";
  if (taskSafe_.taskQueue.empty()) {
    log.verbose(operation, [] { return "startNextTask: failed. taskQueue is empty"; });
    return;
  }
  const auto current = session();
  if (!current) {
    log.verbose(operation, [] { return "startNextTask: failed. session is nil"; });
    taskSafe_.waitsForSession = true;
    return;
  }
  taskSafe_.waitsForSession = false;
  const auto& task = taskSafe_.taskQueue.front();
  if (*task.openWrites > MaximumWaitingRewrites) {
    return log.warning(operation, [&] {
      return fmt::format("startNextTask: rewrite left out; parcelId={}", task.parcel.id());
    });
  }
  log.debug(operation,
            [&] { return fmt::format("startNextTask: count={}", taskSafe_.taskQueue.size()); });
  task.start(*current);
  activityState_.publish(DeviceActivityState::sending);
  log.debug(operation, [] {
    return fmt::format("startNextTask: did update activity state; activityState={}",
                       nameOf(DeviceActivityState::sending));
  });
  addPendingParcel(task.parcel);
  reloadWaitingParcels();
}

void DeviceUtilImpl::didEmptyTaskQueue() {
  taskSafe_.didStartTask = false;
  activityState_.publish(DeviceActivityState::listening);
  log.debug("didEmptyTaskQueue()", [] {
    return fmt::format("didEmptyTaskQueue: did update activity state; activityState={}",
                       nameOf(DeviceActivityState::listening));
  });
}

}  // namespace tandrell
