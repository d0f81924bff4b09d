#pragma once

#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/UserDefaults.h>
#include <TandrellCore/Proto/Wire.h>
#include <TandrellCore/Utility/JsonCodec.h>
#include <TandrellCore/Utility/Logger.h>
#include <TandrellCore/Utility/UserDefaultsEligible.h>

#include <google/protobuf/message.h>

#include <concepts>
#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace tandrell {

/// Converts values of one type to and from what a user-defaults store holds. Failures are logged at
/// error level; a failed write leaves the previous entry as it was, a failed read is absent.
/// The operations of the base are abstract: calling them stops the process.
template <class T>
class DefaultMapper {
 public:
  virtual ~DefaultMapper() = default;
  virtual void putValue(const T&, const std::string&, UserDefaults&) {
    fatalError("putValue is unimplemented");
  }
  virtual std::optional<T> getValue(const std::string&, const UserDefaults&) {
    fatalError("getValue is unimplemented");
  }
};

/// The log lines that the mappers share.
namespace mapperLog {
TANDRELL_API void putFailed(std::string_view what, std::string_view error);
TANDRELL_API void getFailed(std::string_view what, std::string_view error);
}  // namespace mapperLog

/// Values with a `JsonCodec`, stored as JSON text in a bytes entry.
template <class T>
class CodableDefaultMapper : public DefaultMapper<T> {
 public:
  void putValue(const T& value, const std::string& key, UserDefaults& userDefaults) override {
    std::string text;
    try {
      const Json json = JsonCodec<T>::encode(value);
      if (!isFinite(json)) {
        return mapperLog::putFailed("putValue: failed to encode json", "a number is not finite");
      }
      text = json.dump();
    } catch (const std::exception& error) {
      return mapperLog::putFailed("putValue: failed to encode json", error.what());
    }
    userDefaults.setObject({copyOf(viewOf(text))}, key);
  }
  std::optional<T> getValue(const std::string& key, const UserDefaults& userDefaults) override {
    const auto data = userDefaults.data(key);
    if (!data) return std::nullopt;
    try {
      return JsonCodec<T>::decode(Json::parse(data->begin(), data->end()));
    } catch (const std::exception& error) {
      mapperLog::getFailed("getValue: failed to decode json", error.what());
      return std::nullopt;
    }
  }
};

/// Protobuf messages, stored as their binary encoding in a bytes entry.
template <std::derived_from<google::protobuf::Message> T>
class ProtoDefaultMapper : public DefaultMapper<T> {
 public:
  void putValue(const T& value, const std::string& key, UserDefaults& userDefaults) override {
    auto data = toWire(value);
    if (!data) {
      mapperLog::putFailed("putValue: failed to encode protobuf", "message cannot be encoded");
      return;
    }
    userDefaults.setObject({std::move(*data)}, key);
  }
  std::optional<T> getValue(const std::string& key, const UserDefaults& userDefaults) override {
    const auto data = userDefaults.data(key);
    if (!data) return std::nullopt;
    T value;
    if (parseWire(*data, value)) return value;
    mapperLog::getFailed("getValue: failed to decode protobuf", "malformed or truncated message");
    return std::nullopt;
  }
};

/// Values that the store holds as they are. An entry of another type reads as absent.
template <UserDefaultsEligible T>
class EligibleDefaultMapper : public DefaultMapper<T> {
 public:
  void putValue(const T& value, const std::string& key, UserDefaults& userDefaults) override {
    userDefaults.setObject(UserDefaultsEligibleTraits<T>::toObject(value), key);
  }
  std::optional<T> getValue(const std::string& key, const UserDefaults& userDefaults) override {
    const auto object = userDefaults.object(key);
    return object ? UserDefaultsEligibleTraits<T>::fromObject(*object) : std::nullopt;
  }
};

}  // namespace tandrell
