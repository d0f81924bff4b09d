#include <Simulator/CommunicatorFirmware.h>
#include <TandrellCore/Proto/Wire.h>

#include <fmt/format.h>

#include <utility>

namespace tandrell {
namespace {

/// The device never sends more in one frame, in bytes; phones take more for a fault.
constexpr std::size_t longestReport = 320;

// The device counts its time from here: 2023-11-14T22:13:20Z, in seconds since 1970.
constexpr std::uint32_t bootTime = 1'700'000'000;
constexpr std::uint32_t forecastDays = 3;
constexpr std::uint32_t forecastHours = 6;

void addDay(ForecastDto& forecast, std::uint32_t offset) {
  auto& day = *forecast.add_daily();
  day.set_dayofweek(static_cast<DayOfWeek::Type>((1 + offset) % 7 + 1));
  day.set_temperaturelow(2 + offset);
  day.set_temperaturehigh(11 + offset);
  day.set_precipprobability(10 * offset);
  day.set_icon(offset == 0 ? ForecastIcon::clearDay : ForecastIcon::partlyCloudyDay);
  day.set_dayoffset(offset);
}

void addHour(ForecastDto& forecast, std::uint32_t offset) {
  auto& hour = *forecast.add_hourly();
  hour.set_hourofday((22 + offset) % 24);
  hour.set_temperature(6 + offset % 3);
  hour.set_precipprobability(5 * offset);
  hour.set_icon(offset < 2 ? ForecastIcon::clearNight : ForecastIcon::cloudy);
  hour.set_houroffset(offset);
}

}  // namespace

CommunicatorFirmware::CommunicatorFirmware(const CommunicatorOptions& options,
                                           SharedRecords& records, Ports ports)
    : options_(options),
      records_(records),
      ports_(std::move(ports)),
      modem_(options.satellite, ports_.after,
             [this](const Parcel& parcel, ParcelStatus::Type status) {
               reportTransmission(parcel, status);
             }),
      trackingOn_(options.trackingOn),
      battery_(options.battery),
      quality_(options.quality) {
  settings_.set_trackinginterval(options.trackingInterval);
  modem_.setReception(options.reception);
}

void CommunicatorFirmware::receive(const DeviceFrame& frame, FaultProgress& faults) {
  switch (frame.type) {
    case CommandType::parcel:
      return receiveParcel(frame, faults);
    case CommandType::settings:
      return receiveSettings(frame);
    default:
      return reject(frame, fmt::format("takes no command of type {}", frame.type));
  }
}

void CommunicatorFirmware::receiveParcel(const DeviceFrame& frame, FaultProgress& faults) {
  Parcel parcel;
  if (!parseWire(frame.payload, parcel)) return reject(frame, "not a parcel");
  records_.change([&](auto& records) { records.parcels.push_back({ports_.now(), parcel}); });
  const auto fate = faults.nextParcel();
  if (fate.sleep.count() > 0) sleepFor(fate.sleep);
  follow(parcel.package());
  modem_.transmit(std::move(parcel), fate.slowness);
}

void CommunicatorFirmware::follow(const Package& package) {
  TrackingSessionDto session;
  if (package.type() != PackageType::trackingSession) return;
  if (!parseWire(viewOf(package.data()), session)) return;
  if (session.event() == TrackingSessionEvent::none) return;
  setTracking(session.event() == TrackingSessionEvent::enable);
}

void CommunicatorFirmware::receiveSettings(const DeviceFrame& frame) {
  SettingsCommand settings;
  if (!parseWire(frame.payload, settings)) return reject(frame, "not settings");
  settings_ = settings;
  records_.change([&](auto& records) { records.settings.push_back(settings); });
  reportSettings();
}

void CommunicatorFirmware::reject(const DeviceFrame& frame, const std::string& reason) {
  records_.change([&](auto& records) {
    records.malformed.push_back({ports_.now(), reason, frame.payload});
  });
}

void CommunicatorFirmware::reportTransmission(const Parcel& parcel, ParcelStatus::Type status) {
  Parcel report = parcel;
  report.set_status(status);
  if (!options_.echoesPackage || report.ByteSizeLong() > longestReport) {
    report.mutable_package()->clear_data();
  }
  ports_.send(CommandType::parcel, report);
  if (status == ParcelStatus::delivered) answer(parcel);
}

void CommunicatorFirmware::answer(const Parcel& delivered) {
  if (delivered.package().type() == PackageType::forecastRequest) {
    ports_.after(options_.answerDelay, [this] { sendForecast(); });
  }
  if (delivered.package().type() == PackageType::message && options_.reply) {
    ports_.after(options_.answerDelay, [this, delivered] { reply(delivered); });
  }
}

/// Swaps nothing but the text: the correspondent is named the same way in both directions.
void CommunicatorFirmware::reply(const Parcel& delivered) {
  MessageDto message;
  if (!parseWire(viewOf(delivered.package().data()), message)) return;
  message.set_content(*options_.reply);
  sendPackage(PackageType::message, message);
}

void CommunicatorFirmware::reportAll() {
  reportInfo();
  reportBattery(battery_);
  // Quality is what a device reports when it is awake.
  wakeTimer_ ? reportSleep() : reportQuality(quality_);
  reportSettings();
}

void CommunicatorFirmware::reportInfo() {
  InfoCommand info;
  info.set_firmwareversion(options_.firmwareVersion);
  info.set_imei(options_.imei);
  info.set_trackingon(trackingOn_);
  ports_.send(CommandType::info, info);
}

void CommunicatorFirmware::reportBattery(std::uint32_t percentage) {
  battery_ = percentage;
  BatteryCommand battery;
  battery.set_percentage(percentage);
  ports_.send(CommandType::battery, battery);
}

void CommunicatorFirmware::reportQuality(std::uint32_t level) {
  quality_ = level;
  QualityCommand quality;
  quality.set_level(level);
  ports_.send(CommandType::quality, quality);
}

void CommunicatorFirmware::reportSettings() { ports_.send(CommandType::settings, settings_); }

void CommunicatorFirmware::reportSleep() {
  const auto left = std::chrono::ceil<std::chrono::seconds>(wakeTime_ - ports_.now());
  SleepCommand sleep;
  sleep.set_secondstillwake(static_cast<std::uint32_t>(left.count()));
  ports_.send(CommandType::sleep, sleep);
}

void CommunicatorFirmware::log(LogCommandLevel::Type level, const std::string& text) {
  LogCommand line;
  line.set_level(level);
  line.set_message(text);
  ports_.send(CommandType::log, line);
}

void CommunicatorFirmware::sendParcel(const Parcel& parcel) {
  ports_.send(CommandType::parcel, parcel);
}

void CommunicatorFirmware::sendPackage(PackageType::Type type,
                                       const google::protobuf::Message& payload) {
  Parcel parcel;
  parcel.set_id(nextParcelId_++);
  parcel.mutable_package()->set_type(type);
  const auto data = toUncheckedWire(payload).value_or(Data());
  parcel.mutable_package()->set_data(data.data(), data.size());
  sendParcel(parcel);
}

void CommunicatorFirmware::sendForecast() {
  ForecastDto forecast;
  for (std::uint32_t offset = 0; offset < forecastDays; ++offset) addDay(forecast, offset);
  for (std::uint32_t offset = 0; offset < forecastHours; ++offset) addHour(forecast, offset);
  forecast.set_timestamp(bootTime + static_cast<std::uint32_t>(toSeconds(ports_.now())));
  forecast.set_sunriseminutes(7 * 60 + 12);
  forecast.set_sunsetminutes(16 * 60 + 41);
  forecast.set_referencetemp(-3);
  sendPackage(PackageType::forecast, forecast);
}

void CommunicatorFirmware::setTracking(bool on) {
  trackingOn_ = on;
  reportInfo();
}

void CommunicatorFirmware::sleepFor(std::chrono::seconds duration) {
  wakeTime_ = ports_.now() + duration;
  reportSleep();
  modem_.pause();
  if (wakeTimer_) wakeTimer_->cancel();
  wakeTimer_ = ports_.after(duration, [this] { wake(); });
}

void CommunicatorFirmware::wake() {
  if (!wakeTimer_) return;
  std::exchange(wakeTimer_, nullptr)->cancel();
  modem_.resume();
  reportQuality(quality_);
}

void CommunicatorFirmware::shutDown() {
  if (wakeTimer_) std::exchange(wakeTimer_, nullptr)->cancel();
  modem_.pause();
  if (!options_.keepsParcelsOverReboot) modem_.forget();
}

}  // namespace tandrell
