#include <TandrellCore/Api/DevicePayload.h>
#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Proto/Wire.h>
#include <TandrellCore/Utility/Extensions/Date+Tools.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <array>
#include <cmath>
#include <typeinfo>

namespace tandrell {
namespace {

std::optional<PhoneNumber> receivedPhone(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(PhoneNumber::received(text));
}

/// Without a phone number even an empty address counts: what arrived must be shown.
std::optional<EmailAddress> receivedEmail(const ::MessageDto& message) {
  if (message.email().empty() && !message.phonenumber().empty()) return std::nullopt;
  return EmailAddress::received(message.email());
}

}  // namespace

std::string_view nameOf(DevicePayloadStatus status) {
  static constexpr std::array<std::string_view, 5> names = {"none", "connecting", "sending",
                                                            "delivered", "error"};
  return names[static_cast<std::size_t>(status)];
}

DevicePayload::DevicePayload(std::uint32_t parcelId, DevicePayloadStatus status,
                             PackageType::Type packageType)
    : parcelId_(parcelId), status_(status), packageType_(packageType) {}

const Data& DevicePayload::serializedData() const {
  std::call_once(serialized_, [this] { serializedData_ = serializeData(); });
  return serializedData_;
}

int DevicePayload::transmissionCount() const {
  return static_cast<int>(
      std::ceil(static_cast<double>(serializedData().size()) / maximumTransmissionSize));
}

::Parcel DevicePayload::toParcel() const {
  ::Parcel parcel;
  parcel.set_id(parcelId_);
  parcel.mutable_package()->set_type(packageType_);
  const auto text = textOf(serializedData());
  parcel.mutable_package()->set_data(text.data(), text.size());
  return parcel;
}

Data DevicePayload::serializeData() const {
  fatalError("serializedData() has not been implemented");
}

bool operator==(const DevicePayload& a, const DevicePayload& b) {
  return typeid(a) == typeid(b) && a.parcelId_ == b.parcelId_ && a.status_ == b.status_ &&
         a.packageType_ == b.packageType_ && a.hasSameContent(b);
}

bool DevicePayload::hasSameContent(const DevicePayload& other) const {
  return serializedData() == other.serializedData();
}

DataPayload::DataPayload(Data data, std::uint32_t parcelId, DevicePayloadStatus status)
    : DevicePayload(parcelId, status, PackageType::raw), data_(std::move(data)) {}

std::shared_ptr<const MessagePayload> MessagePayload::make(
    std::shared_ptr<WallClock> clock, std::string content, std::optional<EmailAddress> email,
    std::optional<PhoneNumber> phone, std::uint32_t parcelId, DevicePayloadStatus status) {
  if (!email && !phone) return nullptr;
  return std::shared_ptr<const MessagePayload>(new MessagePayload(
      std::move(clock), std::move(content), std::move(email), std::move(phone), parcelId, status));
}

MessagePayload::MessagePayload(std::shared_ptr<WallClock> clock, std::string content,
                               PhoneNumber phone, std::uint32_t parcelId)
    : MessagePayload(std::move(clock), std::move(content), std::nullopt, std::move(phone), parcelId,
                     DevicePayloadStatus::none) {}

MessagePayload::MessagePayload(std::shared_ptr<WallClock> clock, std::string content,
                               EmailAddress email, std::uint32_t parcelId)
    : MessagePayload(std::move(clock), std::move(content), std::move(email), std::nullopt, parcelId,
                     DevicePayloadStatus::none) {}

MessagePayload::MessagePayload(std::shared_ptr<WallClock> clock, std::string content,
                               std::optional<EmailAddress> email, std::optional<PhoneNumber> phone,
                               std::uint32_t parcelId, DevicePayloadStatus status)
    : DevicePayload(parcelId, status, PackageType::message),
      clock_(std::move(clock)),
      content_(std::move(content)),
      email_(std::move(email)),
      phone_(std::move(phone)) {}

bool MessagePayload::hasSameContent(const DevicePayload& other) const {
  const auto& message = static_cast<const MessagePayload&>(other);
  return content_ == message.content_ && email_ == message.email_ && phone_ == message.phone_;
}

Data MessagePayload::serializeData() const {
  ::MessageDto message;
  message.set_content(content_);
  if (phone_) message.set_phonenumber(phone_->value());
  if (email_) message.set_email(email_->value());
  message.set_timestamp(static_cast<std::uint64_t>(toUnixSeconds(clock_->date())));
  // Whatever the texts hold: `send` refuses what is not UTF-8.
  auto data = toUncheckedWire(message);
  if (!data) fatalError("serializeData: failed to serialize MessageDto");
  return std::move(*data);
}

DevicePayloadStatus toDevicePayloadStatus(ParcelStatus::Type status) {
  switch (status) {
    case ParcelStatus::connecting:
      return DevicePayloadStatus::connecting;
    case ParcelStatus::sending:
      return DevicePayloadStatus::sending;
    case ParcelStatus::delivered:
      return DevicePayloadStatus::delivered;
    case ParcelStatus::error:
      return DevicePayloadStatus::error;
    default:
      return DevicePayloadStatus::none;
  }
}

DevicePayloadPtr toDevicePayload(const ::Parcel& parcel, const Environment& environment) {
  const auto status = toDevicePayloadStatus(parcel.status());
  const std::uint32_t payloadId = environment.random->next();
  const DataView data = viewOf(parcel.package().data());
  if (parcel.package().type() != PackageType::message) {
    return std::make_shared<DataPayload>(copyOf(data), payloadId, status);
  }
  const auto message = fromReceivedData<::MessageDto>(data).value_or(::MessageDto());
  auto payload =
      MessagePayload::make(environment.wallClock, message.content(), receivedEmail(message),
                           receivedPhone(message.phonenumber()), payloadId, status);
  if (!payload) fatalError("toDevicePayload: a message without a recipient");
  return payload;
}

}  // namespace tandrell
