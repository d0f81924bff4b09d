#include <CommandLine/ParcelLines.h>
#include <TandrellCore/Proto/Payload.pb.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <fmt/format.h>

namespace tandrell {

MessageLine messageLine(const ::Parcel& parcel) {
  const auto message =
      fromReceivedData<::MessageDto>(viewOf(parcel.package().data())).value_or(::MessageDto());
  const auto& from = message.phonenumber().empty() ? message.email() : message.phonenumber();
  return {{{"from", from}, {"text", message.content()}},
          fmt::format("message from {}: {}", from, message.content())};
}

}  // namespace tandrell
