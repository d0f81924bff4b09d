#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Proto/ErrorResponse.pb.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Proto/TrackingSync.pb.h>

#include <absl/strings/escaping.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>

namespace tandrell::test {

/// An empty message of the set by its name; null for a name that is not in the set.
inline std::unique_ptr<google::protobuf::Message> makeMessage(const std::string& name) {
  // One message of every file: the linker leaves out the files that nobody mentions.
  static const google::protobuf::Descriptor* const set[] = {
      ::Client::descriptor(),           ::Timestamp::descriptor(),
      ::MessageRequest::descriptor(),   ::Parcel::descriptor(),
      ::ErrorResponse::descriptor(),    ::ForecastDto::descriptor(),
      ::LogEventDto::descriptor(),      ::MessageDto::descriptor(),
      ::TrackingViewerDto::descriptor()};
  const auto* type = set[0]->file()->pool()->FindMessageTypeByName(name);
  if (!type) return nullptr;
  const auto* prototype = google::protobuf::MessageFactory::generated_factory()->GetPrototype(type);
  return std::unique_ptr<google::protobuf::Message>(prototype->New());
}

/// Bytes written as hexadecimal digits; blanks between them are left out of account.
inline Data fromHex(std::string text) {
  std::erase(text, ' ');
  return copyOf(viewOf(absl::HexStringToBytes(text)));
}

inline std::string toHex(DataView data) {
  return absl::BytesToHexString({reinterpret_cast<const char*>(data.data()), data.size()});
}

}  // namespace tandrell::test
