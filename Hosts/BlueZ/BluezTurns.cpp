#include <Hosts/BlueZ/BluezTurns.h>

#include <algorithm>
#include <chrono>
#include <tuple>
#include <utility>

namespace tandrell {
namespace {

/// A device in reach is connected to within two seconds.
constexpr std::chrono::seconds turnLimit{5};
/// Within it discovery hears what advertises every few seconds.
constexpr std::chrono::seconds discoveryTime{5};

}  // namespace

BluezTurns::BluezTurns(BluezBus& bus, const Links& links, std::function<bool()> wantsDiscovery,
                       std::function<void()> didChange)
    : bus_(bus),
      links_(links),
      wantsDiscovery_(std::move(wantsDiscovery)),
      didChange_(std::move(didChange)) {}

std::shared_ptr<BluezLink> BluezTurns::next() {
  if (holder_) {
    const auto& turn = holder_->turn;
    const bool goesOn = holder_->isConnecting() && !turn.yielded;
    const bool isCancelled = turn.calling && !holder_->isConnected();
    if (goesOn || isCancelled) return holder_;
    end();
  }
  if (auto link = choose()) begin(std::move(link));
  return holder_;
}

/// Who was seen to be in reach goes first, and then who waits longest.
std::shared_ptr<BluezLink> BluezTurns::choose() const {
  std::shared_ptr<BluezLink> chosen;
  const auto rank = [](const BluezLink& link) {
    return std::tuple(!link.turn.sighted, link.turn.number);
  };
  for (const auto& [identifier, link] : links_) {
    if (mayGo(*link) && (!chosen || rank(*link) < rank(*chosen))) chosen = link;
  }
  return chosen;
}

bool BluezTurns::mayGo(const BluezLink& link) const {
  if (!link.isConnecting()) return false;
  const bool isNew = link.turn.number == 0;
  return hasDiscovered_ || isNew || !wantsDiscovery_() || (link.turn.sighted && attempts() == 1);
}

std::ptrdiff_t BluezTurns::attempts() const {
  return std::ranges::count_if(links_,
                               [](const auto& each) { return each.second->isConnecting(); });
}

bool BluezTurns::isAwaited() const { return wantsDiscovery_() || attempts() > 1; }

void BluezTurns::begin(std::shared_ptr<BluezLink> link) {
  holder_ = std::move(link);
  holder_->turn.begin(++turn_);
  limit();
}

void BluezTurns::limit() {
  bus_.after(turnLimit, [this, turn = turn_] {
    if (turn_ != turn) return;
    if (!isAwaited()) return limit();
    holder_->yield();
  });
}

void BluezTurns::end() {
  holder_.reset();
  hasDiscovered_ = false;
  bus_.after(discoveryTime, [this, turn = ++turn_] {
    if (turn_ != turn) return;
    hasDiscovered_ = true;
    didChange_();
  });
}

}  // namespace tandrell
