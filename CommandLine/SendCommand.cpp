#include <CommandLine/DeliveryRun.h>
#include <CommandLine/SendCommand.h>
#include <TandrellCore/Proto/Wire.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tandrell {
namespace {

/// Waits for the next message after the delivery.
class ReplyRun final : public DeliveryRun {
 public:
  using DeliveryRun::DeliveryRun;

 private:
  void didDeliver() override {}
  std::string missing() const override { return "no reply arrived"; }
  void didReceiveInbound(const Moment& at, const ::Parcel& parcel) override {
    DeliveryRun::didReceiveInbound(at, parcel);
    const bool message = parcel.package().type() == PackageType::message;
    if (message && isDelivered()) finish(ExitStatus::done, "delivered");
  }
};

}  // namespace

void SendCommand::declare(CLI::App& app) {
  app.add_option("--to", to_, "Phone number or e-mail address")->type_name("RECIPIENT");
  app.add_option("text", text_, "The message")->type_name("TEXT");
  app.add_flag("--await-reply", awaitReply_, "Wait for a message after the delivery, and show it");
}

std::optional<std::string> SendCommand::check(const Environment& environment) {
  if (auto problem = checkRecipient(environment)) return problem;
  if (auto problem = checkText()) return problem;
  payload_ = MessagePayload::make(environment.wallClock, text_, recipient_.email, recipient_.phone,
                                  environment.random->next(), DevicePayloadStatus::none);
  if (payload_->transmissionCount() == 1) return std::nullopt;
  return fmt::format(
      "the message is too long: with recipient and time it takes {} bytes, and the limit is {:.0f}",
      payload_->serializedData().size(), DevicePayload::maximumTransmissionSize);
}

std::optional<std::string> SendCommand::checkRecipient(const Environment& environment) {
  if (to_.empty()) return "no recipient: name a phone number or an e-mail address with --to";
  const auto named = recipientNamed("recipient", to_, environment);
  if (!named.isSuccess()) return named.error().text;
  recipient_ = named.value();
  return std::nullopt;
}

std::optional<std::string> SendCommand::checkText() const {
  if (text_.empty()) return "the message is empty: a text of at least one character is needed";
  if (!isUtf8(text_)) return "the message is not valid UTF-8 text";
  return std::nullopt;
}

std::shared_ptr<Run> SendCommand::makeRun(Context context) {
  const auto& recipient = recipient_.value();
  Delivery delivery{payload_, "message", {{"to", recipient}}, " to " + recipient};
  if (!awaitReply_) return makeDeliveryRun(std::move(context), std::move(delivery));
  return std::make_shared<ReplyRun>(std::move(context), std::move(delivery));
}

}  // namespace tandrell
