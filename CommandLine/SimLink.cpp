#include <CommandLine/SimLink.h>

namespace tandrell {
namespace {

void sendGreeting(SimulatedCommunicator& device) {
  MessageDto message;
  message.set_phonenumber("+442079460018");
  message.set_content("Where are you now?");
  device.sendMessage(message);
}

}  // namespace

CommunicatorOptions SimLink::defaultOptions() {
  CommunicatorOptions options;
  options.reply = "Received, thank you.";
  return options;
}

std::shared_ptr<SimLink> SimLink::make(std::shared_ptr<Dispatcher> dispatcher,
                                       const CommunicatorOptions& options) {
  return std::shared_ptr<SimLink>(new SimLink(std::move(dispatcher), options));
}

SimLink::SimLink(std::shared_ptr<Dispatcher> dispatcher, const CommunicatorOptions& options)
    : dispatcher_(std::move(dispatcher)),
      radio_(SimulatedRadio::make(dispatcher_)),
      device_(SimulatedCommunicator::make(radio_, options)) {}

std::optional<Link::Received> SimLink::received() const {
  const auto records = device_->records();
  Received received{{}, records.connections};
  for (const auto& chunk : records.chunks) received.chunks.push_back(chunk.bytes);
  return received;
}

void SimLink::enliven() {
  using std::chrono::seconds;
  after(seconds(2), [](auto& device) { device.reportQuality(2); });
  after(seconds(3), sendGreeting);
  after(seconds(8), [](auto& device) { device.reportQuality(5); });
  after(seconds(15), [](auto& device) { device.reportBattery(79); });
  after(seconds(22), [](auto& device) { device.reportQuality(3); });
  after(seconds(30), [](auto& device) { device.sleepFor(seconds(20)); });
}

void SimLink::after(Duration delay, void (*event)(SimulatedCommunicator&)) {
  dispatcher_->mainQueue()->asyncAfter(delay, [weak = weak_from_this(), event] {
    if (const auto self = weak.lock()) event(*self->device_);
  });
}

}  // namespace tandrell
