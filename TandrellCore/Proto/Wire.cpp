#include <TandrellCore/Proto/Forecast.pb.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Proto/Payload.pb.h>
#include <TandrellCore/Proto/Wire.h>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/unknown_field_set.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace tandrell {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::UnknownField;
using google::protobuf::UnknownFieldSet;

constexpr std::size_t maximumSize = std::numeric_limits<std::int32_t>::max();
// A byte that is not UTF-8 becomes three.
constexpr std::size_t readableGrowth = 3;
// Deeper than the runtime follows.
constexpr int maximumDepth = 128;

/// The length of the text's next character, or of what stands where one should be, negative then.
std::int32_t nextCharacter(std::string_view text) {
  const auto size = static_cast<std::int32_t>(std::min(text.size(), maximumSize));
  std::int32_t length = 0;
  UChar32 character = 0;
  U8_NEXT(text.data(), length, size, character);
  return character < 0 ? -length : length;
}

std::string readable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto length = nextCharacter(text);
    const auto bytes = static_cast<std::size_t>(std::abs(length));
    result += length < 0 ? "\uFFFD" : text.substr(0, bytes);
    text.remove_prefix(bytes);
  }
  return result;
}

/// Makes the texts in the bytes of a message readable, and says how many were not; absent when the
/// bytes are no message. The runtime checks a text when it knows that it is one: the fields are
/// taken apart without knowing them.
std::optional<int> mendTexts(std::string& bytes, const Descriptor& type, int depth = 0) {
  UnknownFieldSet fields;
  if (depth > maximumDepth || !fields.ParseFromString(bytes)) return std::nullopt;
  int mended = 0;
  for (int i = 0; i < fields.field_count(); ++i) {
    auto& field = *fields.mutable_field(i);
    const auto* known = type.FindFieldByNumber(field.number());
    if (!known || field.type() != UnknownField::TYPE_LENGTH_DELIMITED) continue;
    auto& content = *field.mutable_length_delimited();
    if (known->type() == FieldDescriptor::TYPE_STRING && !isUtf8(content)) {
      content = readable(content);
      ++mended;
    }
    if (known->type() != FieldDescriptor::TYPE_MESSAGE) continue;
    const auto inner = mendTexts(content, *known->message_type(), depth + 1);
    if (!inner) return std::nullopt;
    mended += *inner;
  }
  if (mended > 0) fields.SerializeToString(&bytes);
  return mended;
}

bool isAscii(DataView data) {
  return std::all_of(data.begin(), data.end(), [](std::uint8_t byte) { return byte < 0x80; });
}

/// In two steps: the runtime complains of a missing required field.
bool parse(DataView data, Message& message) {
  return message.ParsePartialFromArray(data.data(), static_cast<int>(data.size())) &&
         message.IsInitialized();
}

std::optional<Data> serialize(const Message& message) {
  const std::size_t size = message.ByteSizeLong();
  // The runtime itself writes messages without their required fields.
  if (size > maximumSize || !message.IsInitialized()) return std::nullopt;
  Data data(size);
  if (!message.SerializeToArray(data.data(), static_cast<int>(size))) return std::nullopt;
  return data;
}

std::vector<const FieldDescriptor*> setFieldsOf(const Message& message) {
  std::vector<const FieldDescriptor*> fields;
  message.GetReflection()->ListFields(message, &fields);
  return fields;
}

int countOf(const Message& message, const FieldDescriptor* field) {
  return field->is_repeated() ? message.GetReflection()->FieldSize(message, field) : 1;
}

std::string textAt(const Message& message, const FieldDescriptor* field, int index) {
  const auto* reflection = message.GetReflection();
  return field->is_repeated() ? reflection->GetRepeatedString(message, field, index)
                              : reflection->GetString(message, field);
}

const Message& messageAt(const Message& message, const FieldDescriptor* field, int index) {
  const auto* reflection = message.GetReflection();
  return field->is_repeated() ? reflection->GetRepeatedMessage(message, field, index)
                              : reflection->GetMessage(message, field);
}

bool isReadable(const Message& message, const FieldDescriptor* field) {
  for (int i = 0; i < countOf(message, field); ++i) {
    if (field->type() == FieldDescriptor::TYPE_STRING && !isUtf8(textAt(message, field, i))) {
      return false;
    }
    if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE &&
        !hasReadableTexts(messageAt(message, field, i))) {
      return false;
    }
  }
  return true;
}

/// Moves what the runtime would complain of to the unknown fields, which it does not look into.
void hideUnreadable(Message& message) {
  const auto* reflection = message.GetReflection();
  for (const auto* field : setFieldsOf(message)) {
    if (isReadable(message, field)) continue;
    auto& unknown = *reflection->MutableUnknownFields(&message);
    for (int i = 0; i < countOf(message, field); ++i) {
      if (field->type() == FieldDescriptor::TYPE_STRING) {
        unknown.AddLengthDelimited(field->number(), textAt(message, field, i));
      } else {
        const auto inner = toUncheckedWire(messageAt(message, field, i)).value_or(Data());
        unknown.AddLengthDelimited(field->number(), std::string(textOf(inner)));
      }
    }
    reflection->ClearField(&message, field);
  }
}

const Descriptor* contentOf(PackageType::Type type) {
  switch (type) {
    case PackageType::message:
      return ::MessageDto::descriptor();
    case PackageType::forecast:
      return ::ForecastDto::descriptor();
    case PackageType::forecastRequest:
      return ::ForecastRequest::descriptor();
    case PackageType::sosMessage:
      return ::SosMessageDto::descriptor();
    case PackageType::trackingSession:
      return ::TrackingSessionDto::descriptor();
    case PackageType::trackingLocation:
      return ::TrackingLocationDto::descriptor();
    default:
      return nullptr;
  }
}

}  // namespace

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto length = nextCharacter(text);
    if (length < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(length));
  }
  return true;
}

bool parseWire(DataView data, Message& message) {
  if (data.size() > maximumSize) return false;
  if (isAscii(data)) return parse(data, message);
  std::string bytes(textOf(data));
  return mendTexts(bytes, *message.GetDescriptor()) == 0 && parse(data, message);
}

bool holdsTexts(const Descriptor& type) {
  for (int i = 0; i < type.field_count(); ++i) {
    const auto& field = *type.field(i);
    if (field.type() == FieldDescriptor::TYPE_STRING) return true;
    // One that holds its own kind is not followed round and round.
    if (field.cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE && field.message_type() != &type &&
        holdsTexts(*field.message_type())) {
      return true;
    }
  }
  return false;
}

bool parseTextless(DataView data, Message& message) {
  return data.size() <= maximumSize && parse(data, message);
}

bool parseReceivedWire(DataView data, Message& message) {
  if (data.size() > maximumSize / readableGrowth) return false;
  std::string bytes(textOf(data));
  return mendTexts(bytes, *message.GetDescriptor()) && parse(viewOf(bytes), message);
}

std::optional<Data> toWire(const Message& message) {
  return hasReadableTexts(message) ? serialize(message) : std::nullopt;
}

std::optional<Data> toUncheckedWire(const Message& message) {
  if (hasReadableTexts(message)) return serialize(message);
  const std::unique_ptr<Message> hidden(message.New());
  hidden->CopyFrom(message);
  hideUnreadable(*hidden);
  return serialize(*hidden);
}

bool hasReadableTexts(const Message& message) {
  const auto fields = setFieldsOf(message);
  return std::all_of(fields.begin(), fields.end(),
                     [&](const auto* field) { return isReadable(message, field); });
}

bool hasReadableContent(const ::Package& package) {
  const auto* type = contentOf(package.type());
  if (!type || package.data().size() > maximumSize) return true;
  std::string bytes = package.data();
  return mendTexts(bytes, *type).value_or(0) == 0;
}

}  // namespace tandrell
