#pragma once

#include <TandrellCore/Api/TandrellDevice.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string_view>

/// Why a message that the device had taken did not arrive.
enum class DeliveryError { notTransmitted };
constexpr std::string_view errorDomain(DeliveryError) { return "DeliveryError"; }
constexpr std::string_view errorText(DeliveryError) { return "notTransmitted"; }

/// Makes delivery something to wait for. The library's own promise of `send` ends with the device
/// having the message; what becomes of it then comes in reports. This joins the two.
///
/// A promise can be awaited as it is: `const auto outcome = co_await courier.deliver(message);`
/// gives a `Result` and goes on on the main queue. What to keep in mind about lifetime:
///
/// - A suspended coroutine belongs to the promise that it awaits. When that goes unsettled, the
///   coroutine is destroyed where it stands, its local variables with it. So a coroutine ends with
///   the courier and the link, and needs no cancelling. That holds as long as it does not keep them
///   alive itself: give it references to them, no shared pointers.
/// - What it is given by reference must outlive the main loop, in which it goes on.
/// - What it is given by value is its own. A lambda's captures are not: they go with the lambda, so
///   a coroutine is a function with parameters.
///
/// Any thread may call it. It must not outlive the device and the link.
class Courier {
 public:
  Courier(const tandrell::Environment& environment, tandrell::DeviceUtil& link,
          tandrell::TandrellDevice& device)
      : mainQueue_(environment.mainQueue()),
        device_(device),
        reports_(link.parcel().observe([this](const ::Parcel& parcel) { didReport(parcel); })) {}

  /// Sends the payload, whose identifier must be new. Fulfilled with the last report when it is
  /// delivered. Rejected with `notTransmitted`, or with the error of `TandrellDevice::send`.
  ///
  /// A device that falls silent is given up only after its next connection (see
  /// `DeviceUtil::parcel`): an application that wants an answer sooner sets a limit of its own.
  tandrell::Promise<::Parcel> deliver(const tandrell::DevicePayloadPtr& payload) {
    const tandrell::Promise<::Parcel> delivery(mainQueue_);
    {
      const std::lock_guard lock(mutex_);
      underWay_.insert_or_assign(payload->parcelId(), delivery);
    }
    device_.send(payload).onError(
        [delivery](const tandrell::Error& error) { delivery.reject(error); });
    return delivery;
  }

 private:
  /// On the link's queue.
  void didReport(const ::Parcel& parcel) {
    const bool isDelivered = parcel.status() == tandrell::ParcelStatus::delivered;
    if (!isDelivered && parcel.status() != tandrell::ParcelStatus::error) return;
    std::unique_lock lock(mutex_);
    const auto ended = underWay_.extract(parcel.id());
    lock.unlock();
    if (ended.empty()) return;  // somebody else's
    isDelivered ? ended.mapped().fulfill(parcel)
                : ended.mapped().reject(DeliveryError::notTransmitted);
  }

  const tandrell::QueuePtr mainQueue_;
  tandrell::TandrellDevice& device_;
  std::mutex mutex_;
  std::map<std::uint32_t, tandrell::Promise<::Parcel>> underWay_;
  const tandrell::Subscription reports_;  // last, so that it ends first
};
