#include <CommandLine/MessageText.h>
#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Proto/Wire.h>

#include <fmt/format.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/unknown_field_set.h>

#include <cctype>
#include <memory>

namespace tandrell {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::UnknownField;
using Fields = Output::Fields;

std::string hexOf(std::string_view bytes) {
  std::string text;
  for (const unsigned char byte : bytes) text += fmt::format("{:02X}", byte);
  return text;
}

/// The case's own name without the enumeration's in front, beginning in lower case.
std::string nameOfCase(const FieldDescriptor& field, int number) {
  const auto* entry = field.enum_type()->FindValueByNumber(number);
  if (!entry) return fmt::format("unrecognized({})", number);
  const auto& prefix = field.enum_type()->name();
  const bool prefixed = entry->name().starts_with(prefix) && entry->name() != prefix;
  auto name = prefixed ? entry->name().substr(prefix.size()) : entry->name();
  name.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(name.front())));
  return name;
}

/// The message that a package of this type carries; null for bytes of no known meaning.
std::unique_ptr<Message> contentOf(PackageType::Type type) {
  switch (type) {
    case PackageType::message:
      return std::make_unique<::MessageDto>();
    case PackageType::forecast:
      return std::make_unique<::ForecastDto>();
    case PackageType::forecastRequest:
      return std::make_unique<::ForecastRequest>();
    case PackageType::sosMessage:
      return std::make_unique<::SosMessageDto>();
    case PackageType::trackingSession:
      return std::make_unique<::TrackingSessionDto>();
    case PackageType::trackingLocation:
      return std::make_unique<::TrackingLocationDto>();
    default:
      return nullptr;
  }
}

class Layout {
 public:
  Fields of(const Message& message) {
    auto fields = Fields::object();
    const auto* type = message.GetDescriptor();
    for (int index = 0; index < type->field_count(); ++index) {
      addField(message, *type->field(index), fields);
    }
    addUnknown(message, fields);
    return fields;
  }

  std::string problem;

 private:
  void addField(const Message& message, const FieldDescriptor& field, Fields& fields) {
    const auto& reflection = *message.GetReflection();
    if (field.is_repeated()) {
      auto list = Fields::array();
      for (int index = 0; index < reflection.FieldSize(message, &field); ++index) {
        list.push_back(of(reflection.GetRepeatedMessage(message, &field, index)));
      }
      if (!list.empty()) fields[field.name()] = list;
    } else if (field.cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
      fields[field.name()] = valueOf(message, field);
    } else if (reflection.HasField(message, &field)) {
      const auto& inner = reflection.GetMessage(message, &field);
      const auto* package = dynamic_cast<const ::Package*>(&inner);
      fields[field.name()] = package ? ofPackage(*package) : of(inner);
    }
  }

  Fields valueOf(const Message& message, const FieldDescriptor& field) {
    const auto& reflection = *message.GetReflection();
    switch (field.cpp_type()) {
      case FieldDescriptor::CPPTYPE_INT32:
        return reflection.GetInt32(message, &field);
      case FieldDescriptor::CPPTYPE_INT64:
        return reflection.GetInt64(message, &field);
      case FieldDescriptor::CPPTYPE_UINT32:
        return reflection.GetUInt32(message, &field);
      case FieldDescriptor::CPPTYPE_UINT64:
        return reflection.GetUInt64(message, &field);
      case FieldDescriptor::CPPTYPE_FLOAT:
        return number(reflection.GetFloat(message, &field));
      case FieldDescriptor::CPPTYPE_BOOL:
        return reflection.GetBool(message, &field);
      case FieldDescriptor::CPPTYPE_ENUM:
        return nameOfCase(field, reflection.GetEnumValue(message, &field));
      default:
        return textOf(reflection.GetString(message, &field), field);
    }
  }

  /// The shortest digits that mean this number; those of a double would pretend to more.
  static Fields number(float value) {
    const auto text = fmt::format("{}", value);
    auto digits = Fields::parse(text, nullptr, false);
    return digits.is_discarded() ? Fields(text) : digits;
  }

  static Fields textOf(const std::string& value, const FieldDescriptor& field) {
    return field.type() == FieldDescriptor::TYPE_BYTES ? hexOf(value) : value;
  }

  Fields ofPackage(const ::Package& package) {
    auto fields = of(package);
    // A report may carry the type alone.
    if (package.data().empty()) return fields;
    const auto content = contentOf(package.type());
    if (content && parseReceivedWire(viewOf(package.data()), *content)) {
      fields["data"] = of(*content);
    } else if (content) {
      problem = fmt::format("the package's bytes are no {}", content->GetDescriptor()->name());
    }
    return fields;
  }

  static void addUnknown(const Message& message, Fields& fields) {
    const auto& set = message.GetReflection()->GetUnknownFields(message);
    auto unknown = Fields::object();
    for (int index = 0; index < set.field_count(); ++index) {
      const auto& field = set.field(index);
      unknown[std::to_string(field.number())].push_back(unknownValue(field));
    }
    if (!unknown.empty()) fields["unknownFields"] = unknown;
  }

  static Fields unknownValue(const UnknownField& field) {
    switch (field.type()) {
      case UnknownField::TYPE_VARINT:
        return field.varint();
      case UnknownField::TYPE_FIXED32:
        return fmt::format("fixed32 {:08X}", field.fixed32());
      case UnknownField::TYPE_FIXED64:
        return fmt::format("fixed64 {:016X}", field.fixed64());
      case UnknownField::TYPE_LENGTH_DELIMITED:
        return hexOf(field.length_delimited());
      default:
        return "group";
    }
  }
};

}  // namespace

LaidOutMessage layOut(const Message& message) {
  Layout layout;
  auto fields = layout.of(message);
  return {std::move(fields), std::move(layout.problem)};
}

std::vector<std::string> linesOf(const Output::Fields& fields, std::size_t depth) {
  const std::string indent(depth * 2, ' ');
  std::vector<std::string> lines;
  for (const auto& [key, value] : fields.items()) {
    const auto name = fields.is_array() ? fmt::format("[{}]", key) : key;
    if (!value.is_structured()) {
      const auto text = value.is_string() ? Output::readable(value) : value.dump();
      lines.push_back(fmt::format("{}{}: {}", indent, name, text));
      continue;
    }
    lines.push_back(indent + name);
    const auto inner = linesOf(value, depth + 1);
    lines.insert(lines.end(), inner.begin(), inner.end());
  }
  return lines;
}

}  // namespace tandrell
