#pragma once

#include <Tests/Contracts/Listener.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace tandrell {

/// A radio that is switched on, and in its reach one device that advertises the communicator's
/// service. A back end for another platform makes one of these, and
/// `INSTANTIATE_TEST_SUITE_P(Mine, CentralContract, Values(...))` runs the suite on it.
class CentralWorld {
 public:
  virtual ~CentralWorld() = default;

  /// Begins a life of the application's process, or ends it as a crash does.
  virtual std::shared_ptr<Listener> begin(std::optional<std::string> restoreIdentifier = {}) = 0;
  virtual void kill(std::shared_ptr<Listener>& application) = 0;

  virtual void setRadio(bool on) = 0;

  // The device.
  virtual void setInRange(bool inRange) = 0;  ///< out of range, it loses a link
  /// Returns when the device knows that it is subscribed to; its central was told so.
  virtual void awaitSubscription() {}
  virtual void notify(Data value) = 0;
  virtual Data written() = 0;  ///< all bytes that reached it
};

struct CentralWorldKind {
  const char* name;
  std::function<std::unique_ptr<CentralWorld>()> make;

  friend void PrintTo(const CentralWorldKind& kind, std::ostream* out) { *out << kind.name; }
};

/// What every central manager does; the numbers are those of Documents/Porting.md.
class CentralContract : public testing::TestWithParam<CentralWorldKind> {
 protected:
  void begin(std::optional<std::string> restoreIdentifier = {});
  /// Expects this event next; with another one the test ends, for what follows builds on it.
  void expect(const testing::Matcher<std::string>& event);
  /// Expects the end of a connection that was lost.
  void expectLoss();
  void scan();
  void connect();
  void findCharacteristics();
  void subscribe();
  void write(std::uint8_t value);
  /// Everything, from the scan to the subscription.
  void meet();

  std::unique_ptr<CentralWorld> world = GetParam().make();
  std::shared_ptr<Listener> application;
};

}  // namespace tandrell
