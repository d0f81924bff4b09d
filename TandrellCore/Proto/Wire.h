#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Device.pb.h>

#include <google/protobuf/message.h>

#include <optional>
#include <string_view>

namespace tandrell {

// Messages to bytes and back. Of a text that is not UTF-8, and of too many bytes, the protobuf
// runtime complains on the standard error stream, and what it does instead is the process's choice,
// not a library's. So it meets none: all of this system passes here. Nothing here logs.

/// Whether the bytes are UTF-8, without overlong forms, surrogates and what lies beyond Unicode.
TANDRELL_API bool isUtf8(std::string_view text);

/// Reads the bytes into `message`. False when they are no such message, a required field is
/// missing, a text in it is not UTF-8, and for 2 GiB and more, which are not looked at; `message`
/// then holds anything.
TANDRELL_API bool parseWire(DataView data, google::protobuf::Message& message);

/// Whether messages of this type have a text in them, at any depth.
TANDRELL_API bool holdsTexts(const google::protobuf::Descriptor& type);

/// `parseWire` for types without texts, at the runtime's own speed.
TANDRELL_API bool parseTextless(DataView data, google::protobuf::Message& message);

/// `parseWire` for what comes from afar, up to a third of that size: U+FFFD stands for what is not
/// UTF-8 in a text.
TANDRELL_API bool parseReceivedWire(DataView data, google::protobuf::Message& message);

/// The message's bytes; absent when a text is not UTF-8, a required field is missing, and when it
/// would take 2 GiB or more.
TANDRELL_API std::optional<Data> toWire(const google::protobuf::Message& message);

/// The same with all texts as they are, UTF-8 or not; those that are not come last.
TANDRELL_API std::optional<Data> toUncheckedWire(const google::protobuf::Message& message);

/// Whether every text of the message, at any depth, is UTF-8.
TANDRELL_API bool hasReadableTexts(const google::protobuf::Message& message);

/// Whether that is so of the content that the package's type names. What is no such message, and
/// bytes of another type, hold no texts.
TANDRELL_API bool hasReadableContent(const ::Package& package);

}  // namespace tandrell
