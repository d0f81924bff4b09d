#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Utility/EmailAddress.h>
#include <TandrellCore/Utility/PhoneNumber.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tandrell {

/// Delivery status of a payload; the numbers are those of the device's parcel status.
enum class DevicePayloadStatus { none = 0, connecting = 1, sending = 2, delivered = 3, error = 4 };

/// The name of the case, for people and log lines.
TANDRELL_API std::string_view nameOf(DevicePayloadStatus status);

/// What the application sends and receives through the device. Application code may derive its own
/// kinds. Immutable, and safe from any thread once made.
class TANDRELL_API DevicePayload {
 public:
  /// What fits in one transmission of the device, in bytes.
  static constexpr double maximumTransmissionSize = 340.0;

  DevicePayload(std::uint32_t parcelId, DevicePayloadStatus status, PackageType::Type packageType);
  virtual ~DevicePayload() = default;

  /// The parcel that the payload travels in.
  std::uint32_t parcelId() const { return parcelId_; }
  DevicePayloadStatus status() const { return status_; }
  PackageType::Type packageType() const { return packageType_; }

  /// The bytes to transmit: `serializeData()`, asked for once and kept.
  const Data& serializedData() const;

  /// How many transmissions of the device the payload needs: none for no bytes, 1 up to 340 bytes,
  /// 2 for 341.
  int transmissionCount() const;

  /// The parcel to send; its status is `none`.
  ::Parcel toParcel() const;

  /// Of one class, with equal id, status, package type and content.
  friend TANDRELL_API bool operator==(const DevicePayload& a, const DevicePayload& b);

 protected:
  /// The bytes to transmit. Called once. The base version stops the process.
  virtual Data serializeData() const;

  /// Whether another of the same class says the same. The base version compares the bytes.
  virtual bool hasSameContent(const DevicePayload& other) const;

 private:
  const std::uint32_t parcelId_;
  const DevicePayloadStatus status_;
  const PackageType::Type packageType_;
  mutable std::once_flag serialized_;
  mutable Data serializedData_;
};

/// Payloads are shared and never change.
using DevicePayloadPtr = std::shared_ptr<const DevicePayload>;

/// Bytes that the library does not look into.
class TANDRELL_API DataPayload final : public DevicePayload {
 public:
  DataPayload(Data data, std::uint32_t parcelId,
              DevicePayloadStatus status = DevicePayloadStatus::none);

  /// The bytes as they came or were given.
  const Data& data() const { return data_; }

 protected:
  Data serializeData() const override { return data_; }

 private:
  const Data data_;
};

/// A text message to a phone number, an e-mail address, or both.
class TANDRELL_API MessagePayload final : public DevicePayload {
 public:
  /// Absent without any recipient. The clock stamps the message when it is serialised.
  static std::shared_ptr<const MessagePayload> make(
      std::shared_ptr<WallClock> clock, std::string content, std::optional<EmailAddress> email,
      std::optional<PhoneNumber> phone, std::uint32_t parcelId, DevicePayloadStatus status);

  MessagePayload(std::shared_ptr<WallClock> clock, std::string content, PhoneNumber phone,
                 std::uint32_t parcelId);
  MessagePayload(std::shared_ptr<WallClock> clock, std::string content, EmailAddress email,
                 std::uint32_t parcelId);

  /// The text, and the recipient, or the sender of an inbound message.
  const std::string& content() const { return content_; }
  const std::optional<PhoneNumber>& phone() const { return phone_; }
  const std::optional<EmailAddress>& email() const { return email_; }

 protected:
  Data serializeData() const override;
  /// Text and recipients: comparing must not stamp the message.
  bool hasSameContent(const DevicePayload& other) const override;

 private:
  MessagePayload(std::shared_ptr<WallClock> clock, std::string content,
                 std::optional<EmailAddress> email, std::optional<PhoneNumber> phone,
                 std::uint32_t parcelId, DevicePayloadStatus status);

  const std::shared_ptr<WallClock> clock_;
  const std::string content_;
  const std::optional<EmailAddress> email_;
  const std::optional<PhoneNumber> phone_;
};

/// The same-named status; `none` for a value that the device made up.
TANDRELL_API DevicePayloadStatus toDevicePayloadStatus(ParcelStatus::Type status);

/// What arrived, as a payload: a message becomes a `MessagePayload`, everything else a
/// `DataPayload`. The payload gets a new random id: the parcel's own is deliberately not carried
/// over. A message that names no recipient or does not parse, such as a delivery report without its
/// text, becomes one with empty texts; of a text that is not UTF-8 what can be read stays.
TANDRELL_API DevicePayloadPtr toDevicePayload(const ::Parcel& parcel,
                                              const Environment& environment);

}  // namespace tandrell
