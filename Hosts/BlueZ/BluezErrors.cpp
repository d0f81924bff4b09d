#include <Hosts/BlueZ/BluezErrors.h>

#include <charconv>
#include <string>
#include <string_view>

namespace tandrell {
namespace {

constexpr std::string_view attMark = "ATT error: 0x";

bool contains(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

bool isOneOf(const std::string& name, std::initializer_list<std::string_view> names) {
  for (const auto candidate : names) {
    if (name.ends_with(candidate)) return true;
  }
  return false;
}

/// The attribute protocol's error code that the text names; bluetoothd has names for some.
std::optional<int> attCode(const Error& error) {
  if (contains(error.text, "Not paired")) return 0x05;
  if (isOneOf(error.domain, {".NotAuthorized"})) return 0x08;
  const auto mark = error.text.find(attMark);
  if (mark == std::string::npos) return std::nullopt;
  int code = 0;
  const auto* digits = error.text.data() + mark + attMark.size();
  std::from_chars(digits, error.text.data() + error.text.size(), code, 16);
  return code;
}

}  // namespace

BluezFailure failureOf(const Error& error) {
  if (isOneOf(error.domain, {".UnknownObject", ".UnknownMethod", ".UnknownInterface"})) {
    return BluezFailure::unknown;
  }
  if (isOneOf(error.domain, {".InProgress"})) return BluezFailure::busy;
  if (isOneOf(error.domain, {".AlreadyConnected"})) return BluezFailure::connectedYet;
  if (contains(error.text, "abort-by-local") || contains(error.text, "connection-canceled") ||
      isOneOf(error.domain, {".NoReply"})) {
    return BluezFailure::outOfReach;
  }
  const auto code = attCode(error);
  // 0 and 0x0e (unlikely) also stand for requests that went down with their link.
  if (code && *code != 0 && *code != 0x0e) return BluezFailure::refused;
  if (isOneOf(error.domain, {".NotPermitted", ".NotSupported", ".InvalidArguments",
                             ".InvalidValueLength", ".InvalidOffset"})) {
    return BluezFailure::refused;
  }
  return BluezFailure::unclear;
}

Error platformError(const Error& error) {
  if (failureOf(error) == BluezFailure::unknown) return CentralError::uuidNotAllowed;
  if (const auto code = attCode(error)) return {"CBATTErrorDomain", *code, error.text};
  return error;
}

Error refusalOf(const Error& error) {
  const int code = error.domain == "CBATTErrorDomain" ? error.code : 0;
  if (code == 0x03) return {"org.bluez.Error.NotPermitted", 0, error.text};
  if (code == 0x06) return {"org.bluez.Error.NotSupported", 0, error.text};
  if (code == 0x08) return {"org.bluez.Error.NotAuthorized", 0, error.text};
  if (code == 0x0d) return {"org.bluez.Error.InvalidValueLength", 0, error.text};
  if (code == 0x0e) return {"org.freedesktop.DBus.Error.Failed", 0, error.text};
  // bluetoothd reads these from the text, and takes names that are none of its own for 0x0e.
  const bool application = code >= 0x80 && code <= 0x9f;
  return {"org.bluez.Error.Failed", 0, std::to_string(application ? code : 0x80)};
}

}  // namespace tandrell
