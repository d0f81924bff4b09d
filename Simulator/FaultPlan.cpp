#include <Simulator/FaultPlan.h>

#include <fmt/format.h>

#include <algorithm>
#include <random>
#include <utility>

namespace tandrell {
namespace {

/// Draws one fault after another. The modulo is meant: the distributions of the standard library
/// differ from one implementation to the next, and a seed in a bug report must not.
class FaultDraw {
 public:
  FaultDraw(std::uint32_t seed, const FaultPlan::Extent& extent) : random_(seed), extent_(extent) {}

  void addTo(FaultPlan& plan) {
    switch (upTo(11)) {
      case 1:
        return void(plan.dropAtByte(upTo(extent_.bytes), CutWrite::unanswered));
      case 2:
        return void(plan.dropAtByte(upTo(extent_.bytes), CutWrite::answered));
      case 3:
        return void(plan.rebootAtByte(upTo(extent_.bytes)));
      case 4:
        return void(plan.refuseWrite(upTo(extent_.writes), refusal()));
      case 5:
        return void(plan.loseCompletion(upTo(extent_.writes)));
      case 6:
        return void(plan.holdCompletion(upTo(extent_.writes), milliseconds(20'000)));
      case 7:
        return void(plan.failConnect(upTo(extent_.connects)));
      case 8:
        return void(plan.cutNotifications(upTo(19)));
      case 9:
        return void(plan.garbageBeforeFrame(upTo(extent_.frames)));
      case 10:
        return void(plan.sleepAtParcel(upTo(extent_.parcels), std::chrono::seconds(upTo(120))));
      default:
        return void(plan.slowSatellite(upTo(extent_.parcels), milliseconds(120'000)));
    }
  }

 private:
  std::size_t upTo(std::size_t most) { return random_() % std::max<std::size_t>(most, 1) + 1; }
  Duration milliseconds(std::size_t most) { return std::chrono::milliseconds(upTo(most)); }
  CentralError refusal() {
    return upTo(2) == 1 ? CentralError::peripheralDisconnected : CentralError::uuidNotAllowed;
  }

  std::mt19937 random_;
  const FaultPlan::Extent extent_;
};

std::string hexOf(DataView bytes) {
  std::string text;
  for (const auto byte : bytes) text += fmt::format("{:02X}", byte);
  return text;
}

}  // namespace

std::string Fault::description() const {
  switch (kind) {
    case FaultKind::drop:
      return fmt::format("drop the link at byte {}{}", at,
                         cut == CutWrite::answered ? ", failing the write" : "");
    case FaultKind::reboot:
      return fmt::format("reboot at byte {}", at);
    case FaultKind::refuseWrite:
      return fmt::format("refuse write {} with {}", at, error->description());
    case FaultKind::loseCompletion:
      return fmt::format("lose the completion of write {}", at);
    case FaultKind::holdCompletion:
      return fmt::format("hold the completion of write {} for {} s", at, toSeconds(duration));
    case FaultKind::failConnect:
      return fmt::format("fail connection attempt {}", at);
    case FaultKind::refuseSubscription:
      return fmt::format("refuse subscription {} with {}", at, error->description());
    case FaultKind::cutNotifications:
      return fmt::format("cut notifications to {} bytes", at);
    case FaultKind::joinNotifications:
      return "join notifications";
    case FaultKind::garbage:
      return fmt::format("send {} before frame {}", hexOf(bytes), at);
    case FaultKind::sleep:
      return fmt::format("sleep for {} s at parcel {}", toSeconds(duration), at);
    case FaultKind::slowSatellite:
      return fmt::format("slow down parcel {} by {} s", at, toSeconds(duration));
  }
  return "unknown";
}

FaultPlan& FaultPlan::add(Fault fault) {
  faults_.push_back(std::move(fault));
  return *this;
}

FaultPlan& FaultPlan::dropAtByte(std::size_t n, CutWrite cut) {
  return add({.kind = FaultKind::drop, .at = n, .cut = cut});
}
FaultPlan& FaultPlan::rebootAtByte(std::size_t n) { return add({FaultKind::reboot, n}); }
FaultPlan& FaultPlan::refuseWrite(std::size_t n, CentralError error) {
  return add({FaultKind::refuseWrite, n, error});
}
FaultPlan& FaultPlan::loseCompletion(std::size_t n) { return add({FaultKind::loseCompletion, n}); }
FaultPlan& FaultPlan::holdCompletion(std::size_t n, Duration by) {
  return add({.kind = FaultKind::holdCompletion, .at = n, .duration = by});
}
FaultPlan& FaultPlan::failConnect(std::size_t attempt) {
  return add({FaultKind::failConnect, attempt});
}
FaultPlan& FaultPlan::refuseSubscription(std::size_t n, Error error) {
  return add({FaultKind::refuseSubscription, n, std::move(error)});
}
FaultPlan& FaultPlan::cutNotifications(std::size_t size) {
  return add({FaultKind::cutNotifications, std::max<std::size_t>(size, 1)});
}
FaultPlan& FaultPlan::joinNotifications() { return add({FaultKind::joinNotifications}); }
FaultPlan& FaultPlan::garbageBeforeFrame(std::size_t n, Data bytes) {
  return add({.kind = FaultKind::garbage, .at = n, .bytes = std::move(bytes)});
}
FaultPlan& FaultPlan::sleepAtParcel(std::size_t n, std::chrono::seconds duration) {
  return add({.kind = FaultKind::sleep, .at = n, .duration = duration});
}
FaultPlan& FaultPlan::slowSatellite(std::size_t n, Duration by) {
  return add({.kind = FaultKind::slowSatellite, .at = n, .duration = by});
}
FaultPlan& FaultPlan::add(const FaultPlan& other) {
  for (const auto& fault : other.faults()) add(fault);
  return *this;
}

FaultPlan FaultPlan::fromSeed(std::uint32_t seed) { return fromSeed(seed, Extent{}); }

FaultPlan FaultPlan::fromSeed(std::uint32_t seed, const Extent& extent) {
  FaultPlan plan;
  FaultDraw draw(seed, extent);
  for (std::size_t i = 0; i < extent.faults; ++i) draw.addTo(plan);
  return plan;
}

std::vector<std::string> FaultPlan::describe() const {
  std::vector<std::string> lines;
  for (const auto& fault : faults_) lines.push_back(fault.description());
  return lines;
}

}  // namespace tandrell
