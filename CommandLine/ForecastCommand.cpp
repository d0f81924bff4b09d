#include <CommandLine/Arguments.h>
#include <CommandLine/DeliveryRun.h>
#include <CommandLine/ForecastCommand.h>
#include <CommandLine/ForecastText.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <fmt/format.h>

namespace tandrell {
namespace {

/// Waits for the forecast after the delivery of the request.
class ForecastRun final : public DeliveryRun {
 public:
  using DeliveryRun::DeliveryRun;

 private:
  void didDeliver() override {}
  std::string missing() const override { return "no forecast arrived"; }

  void didReceiveInbound(const Moment& at, const ::Parcel& parcel) override {
    DeliveryRun::didReceiveInbound(at, parcel);
    if (parcel.package().type() != PackageType::forecast) return;
    const auto forecast = fromReceivedData<::ForecastDto>(viewOf(parcel.package().data()));
    if (!forecast) {
      return finish(ExitStatus::failed, "failed", "the forecast that arrived cannot be read");
    }
    context().output.block(at, "forecast", forecastFields(*forecast), forecastLines(*forecast));
    if (isDelivered()) finish(ExitStatus::done, "delivered");
  }
};

}  // namespace

void ForecastCommand::declare(CLI::App& app) { addPosition(app, degrees_); }

std::optional<std::string> ForecastCommand::check(const Environment& environment) {
  if (auto problem = checkPosition(degrees_)) return problem;
  payload_ = makeForecastPayload(*positionOf(degrees_), environment.random->next());
  if (payload_->transmissionCount() == 1) return std::nullopt;
  // Both coordinates are 0, and a message of zeros has no bytes; the device takes no empty parcel.
  return "a request for 0 0 cannot be sent: name a place nearby, such as 0.01 0";
}

std::shared_ptr<Run> ForecastCommand::makeRun(Context context) {
  const Output::Fields fields = {{"latitude", degrees_[0]}, {"longitude", degrees_[1]}};
  return std::make_shared<ForecastRun>(
      std::move(context), Delivery{payload_, "forecast request", fields,
                                   fmt::format(" for {} {}", degrees_[0], degrees_[1])});
}

}  // namespace tandrell
