#pragma once

#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Account.pb.h>
#include <TandrellCore/Proto/Common.pb.h>
#include <TandrellCore/Proto/Conversation.pb.h>
#include <TandrellCore/Proto/Device.pb.h>
#include <TandrellCore/Proto/Forecast.pb.h>
#include <TandrellCore/Proto/LogEvent.pb.h>
#include <TandrellCore/Proto/Payload.pb.h>

#include <string>

/// Short names for the cases of the message set's enumerations. The enumerations are open: a value
/// outside its list is kept and written back unchanged.
namespace tandrell {

namespace CommandType {
using Type = ::CommandType;
inline constexpr Type parcel = ::CommandTypeParcel;
inline constexpr Type log = ::CommandTypeLog;
inline constexpr Type quality = ::CommandTypeQuality;
inline constexpr Type battery = ::CommandTypeBattery;
inline constexpr Type info = ::CommandTypeInfo;
inline constexpr Type sleep = ::CommandTypeSleep;
inline constexpr Type settings = ::CommandTypeSettings;
}  // namespace CommandType

namespace ParcelStatus {
using Type = ::ParcelStatus;
inline constexpr Type none = ::ParcelStatusNone;
inline constexpr Type connecting = ::ParcelStatusConnecting;
inline constexpr Type sending = ::ParcelStatusSending;
inline constexpr Type delivered = ::ParcelStatusDelivered;
inline constexpr Type error = ::ParcelStatusError;
}  // namespace ParcelStatus

namespace LogCommandLevel {
using Type = ::LogCommandLevel;
inline constexpr Type trace = ::LogCommandLevelTrace;
inline constexpr Type debug = ::LogCommandLevelDebug;
inline constexpr Type info = ::LogCommandLevelInfo;
inline constexpr Type warn = ::LogCommandLevelWarn;
inline constexpr Type error = ::LogCommandLevelError;
}  // namespace LogCommandLevel

namespace PackageType {
using Type = ::Package::Type;
inline constexpr Type message = ::Package::Message;
inline constexpr Type raw = ::Package::Raw;
inline constexpr Type forecast = ::Package::Forecast;
inline constexpr Type forecastRequest = ::Package::ForecastRequest;
inline constexpr Type sosMessage = ::Package::SosMessage;
inline constexpr Type trackingSession = ::Package::TrackingSession;
inline constexpr Type trackingLocation = ::Package::TrackingLocation;
}  // namespace PackageType

namespace IntegrationType {
using Type = ::IntegrationType;
inline constexpr Type none = ::IntegrationTypeNone;
inline constexpr Type geos = ::IntegrationTypeGeos;
}  // namespace IntegrationType

namespace SosMessageType {
using Type = ::SosMessageDto::Type;
inline constexpr Type alarm = ::SosMessageDto::Alarm;
inline constexpr Type cancel = ::SosMessageDto::Cancel;
}  // namespace SosMessageType

namespace TrackingSessionEvent {
using Type = ::TrackingSessionEvent;
inline constexpr Type none = ::TrackingSessionEventNone;
inline constexpr Type enable = ::TrackingSessionEventEnable;
inline constexpr Type disable = ::TrackingSessionEventDisable;
}  // namespace TrackingSessionEvent

namespace ForecastIcon {
using Type = ::ForecastIconDto;
inline constexpr Type repeat = ::Repeat;
inline constexpr Type clearDay = ::ClearDay;
inline constexpr Type clearNight = ::ClearNight;
inline constexpr Type rain = ::Rain;
inline constexpr Type snow = ::Snow;
inline constexpr Type sleet = ::Sleet;
inline constexpr Type wind = ::Wind;
inline constexpr Type fog = ::Fog;
inline constexpr Type cloudy = ::Cloudy;
inline constexpr Type partlyCloudyDay = ::PartlyCloudyDay;
inline constexpr Type partlyCloudyNight = ::PartlyCloudyNight;
inline constexpr Type unknown = ::Unknown;
}  // namespace ForecastIcon

namespace DayOfWeek {
using Type = ::DayOfWeekDto;
inline constexpr Type none = ::None;
inline constexpr Type monday = ::Monday;
inline constexpr Type tuesday = ::Tuesday;
inline constexpr Type wednesday = ::Wednesday;
inline constexpr Type thursday = ::Thursday;
inline constexpr Type friday = ::Friday;
inline constexpr Type saturday = ::Saturday;
inline constexpr Type sunday = ::Sunday;
}  // namespace DayOfWeek

namespace LogLevel {
using Type = ::LogLevel;
inline constexpr Type trace = ::Trace;
inline constexpr Type debug = ::Debug;
inline constexpr Type info = ::Info;
inline constexpr Type warn = ::Warn;
inline constexpr Type error = ::Error;
}  // namespace LogLevel

namespace ClientType {
using Type = ::Client::Type;
inline constexpr Type web = ::Client::Web;
inline constexpr Type iOs = ::Client::iOS;
inline constexpr Type android = ::Client::Android;
}  // namespace ClientType

namespace NotificationType {
using Type = ::NotificationType;
inline constexpr Type newMessageNotification = ::NewMessageNotification;
inline constexpr Type newTrackingViewerNotification = ::NewTrackingViewerNotification;
}  // namespace NotificationType

/// The short name of a case, for texts and log lines: "trackingSession". A value outside the list
/// reads "unrecognized(9)".
TANDRELL_API std::string nameOf(CommandType::Type value);
TANDRELL_API std::string nameOf(ParcelStatus::Type value);
TANDRELL_API std::string nameOf(PackageType::Type value);
TANDRELL_API std::string nameOf(LogCommandLevel::Type value);
TANDRELL_API std::string nameOf(TrackingSessionEvent::Type value);
TANDRELL_API std::string nameOf(ForecastIcon::Type value);
TANDRELL_API std::string nameOf(DayOfWeek::Type value);

}  // namespace tandrell
