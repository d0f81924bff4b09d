#include <TandrellCore/Core/DeviceUtilImpl.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <TandrellCore/Utility/Logger.h>

// What the device sends, and settings on their way to it.
namespace tandrell {
namespace {

constexpr SourceLog log("DeviceUtil");
constexpr std::string_view parseOperation = "commandParser(parser:didParseCommand:)";

LogFacadeLevel levelOf(LogCommandLevel::Type level) {
  switch (level) {
    case LogCommandLevel::trace:
    case LogCommandLevel::debug:
      return LogFacadeLevel::debug;
    case LogCommandLevel::info:
      return LogFacadeLevel::info;
    case LogCommandLevel::warn:
      return LogFacadeLevel::warning;
    case LogCommandLevel::error:
      return LogFacadeLevel::error;
    default:
      return LogFacadeLevel::verbose;
  }
}

void logFirmwareEvent(LogCommandLevel::Type level, const std::string& message) {
  static const LogUserInfo firmware = {
      {std::string(LogFacadeConfig::LogUserInfoSourceKey), std::string("fir")}};
  log.log(
      levelOf(level), "logFirmwareEvent(level:message:)", [&] { return message; }, firmware);
}

/// "BatteryCommand: percentage: 80"
void logCommand(std::string_view name, const google::protobuf::Message& command) {
  log.debug(parseOperation, [&] { return fmt::format("{}: {}", name, debugText(command)); });
}

}  // namespace

/// What the parser holds on to: the link owns the parser, so the way back is weak.
struct DeviceUtilImpl::ParserDelegate final : CommandParserDelegate {
  explicit ParserDelegate(std::weak_ptr<DeviceUtilImpl> link) : link(std::move(link)) {}

  void didParseCommand(CommandParser&, const Command& command) override {
    if (const auto self = link.lock()) self->didParseCommand(command);
  }
  void didParseInvalidDataLength(CommandParser&, int length) override {
    if (const auto self = link.lock()) self->didParseInvalidDataLength(length);
  }

  const std::weak_ptr<DeviceUtilImpl> link;
};

std::unique_ptr<CommandParser> DeviceUtilImpl::makeParser() {
  return std::make_unique<CommandParser>(std::make_shared<ParserDelegate>(weak_from_this()));
}

void DeviceUtilImpl::didParseCommand(const Command& command) {
  onTaskStore([command](DeviceUtilImpl& self) {
    std::visit([&](const auto& message) { self.handle(message); }, command);
  });
}

void DeviceUtilImpl::didParseInvalidDataLength(int length) {
  log.error("commandParser(parser:didParseInvalidDataLength:)", [&] {
    return fmt::format(
        "commandParser: did parse invalid data length. Device will disconnect. length={}", length);
  });
  disconnect();
}

void DeviceUtilImpl::handle(const ::LogCommand& command) {
  logFirmwareEvent(command.level(), command.message());
}

void DeviceUtilImpl::handle(const ::Parcel& parcel) {
  log.debug(parseOperation, [&] {
    return fmt::format("ParcelCommand: received Parcel; id={}; packageType={}; status={}",
                       parcel.id(), nameOf(parcel.package().type()), nameOf(parcel.status()));
  });
  if (isFinal(parcel.status())) {
    if (const auto index = indexOfTask(parcel.id())) removeTask(*index);
    if (taskSafe_.taskQueue.empty()) {
      didEmptyTaskQueue();
    } else {
      // Deliberately whichever task was removed: where the head stays, it is written again.
      startNextTask();
    }
  }
  didReceiveParcelFromDevice(parcel);
}

void DeviceUtilImpl::handle(const ::QualityCommand& command) {
  logCommand("QualityCommand", command);
  quality_.publish(command.level());
  const auto activity = activityState_.value();
  if (activity != DeviceActivityState::disconnected && activity != DeviceActivityState::sleeping) {
    return;
  }
  setActivityState(taskSafe_.taskQueue.empty() ? DeviceActivityState::listening
                                               : DeviceActivityState::sending);
}

void DeviceUtilImpl::handle(const ::BatteryCommand& command) {
  logCommand("BatteryCommand", command);
  battery_.publish(command.percentage());
}

void DeviceUtilImpl::handle(const ::InfoCommand& command) {
  logCommand("InfoCommand", command);
  imei_.publish(command.imei());
  firmwareVersion_.publish(Version::build(command.firmwareversion()));
  initialTrackingState_.publish(command.trackingon() ? DeviceTrackingState::enabled
                                                     : DeviceTrackingState::disabled);
}

void DeviceUtilImpl::handle(const ::SleepCommand& command) {
  logCommand("SleepCommand", command);
  wakeDate_.publish(environment_.wallClock->date().plusSeconds(command.secondstillwake()));
  setActivityState(DeviceActivityState::sleeping);
}

void DeviceUtilImpl::handle(const ::SettingsCommand& command) {
  logCommand("SettingsCommand", command);
  settings_.publish(command);
}

void DeviceUtilImpl::setActivityState(DeviceActivityState state) {
  activityState_.publish(state);
  log.debug(parseOperation, [&] {
    return fmt::format("didParseCommand: did update activity state; activityState={}",
                       nameOf(state));
  });
}

Promise<::SettingsCommand> DeviceUtilImpl::updateSettings(const ::SettingsCommand& settings) {
  static constexpr std::string_view operation = "updateSettings(settings:)";
  Promise<::SettingsCommand> promise(environment_.mainQueue());
  const auto current = session();
  if (!current) {
    promise.reject(BleError::peripheralNotFound);
    return promise;
  }
  log.debug(operation,
            [&] { return fmt::format("updateSettings: start; {}", debugText(settings)); });
  current->writeData(BleConfig::DeviceUUIDs::ReceivingChar, prepareForWrite(settings))
      .then([promise, settings](const Data&) {
        log.debug(operation, [] { return "updateSettings: success"; });
        promise.fulfill(settings);
      })
      .onError([promise](const Error& error) {
        log.debug(operation, [] { return "updateSettings: failed"; });
        promise.reject(error);
      });
  return promise;
}

}  // namespace tandrell
