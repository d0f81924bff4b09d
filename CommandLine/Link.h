#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Environment.h>
#include <TandrellCore/Platform/PeripheralManager.h>
#include <TandrellCore/Platform/Result.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tandrell {

/// A way to a communicator, as `--link` names it: the radio, and what else the program can know
/// when both ends are in its hands. Used on the main thread.
class Link {
 public:
  /// What the device at the other end took in.
  struct Received {
    std::vector<Data> chunks;     ///< each write, in order
    std::size_t connections = 0;  ///< a write that was cut off is made again on the next one
  };

  virtual ~Link() = default;

  virtual std::shared_ptr<CentralManagerFactory> centralManagers() const = 0;

  /// The same radio in the peripheral role; null where there is none.
  virtual std::shared_ptr<PeripheralManagerFactory> peripheralManagers() const { return nullptr; }

  /// Why nothing can be done over this link at the moment; absent where nothing is known to stand
  /// in the way.
  virtual std::optional<Error> problem() const { return std::nullopt; }

  /// Absent where the device is out of the program's sight.
  virtual std::optional<Received> received() const { return std::nullopt; }

  /// Lets something happen on the device's side, where the program can: for `watch`.
  virtual void enliven() {}
};

/// Makes the link of this name on the dispatcher, or says why it cannot.
using LinkMaker = std::function<Result<std::shared_ptr<Link>>(std::string_view name,
                                                              const Environment& environment)>;

enum class LinkError { unknownLink };
constexpr std::string_view errorDomain(LinkError) { return "LinkError"; }
constexpr std::string_view errorText(LinkError) { return "unknownLink"; }

/// The links of this program: "sim", a simulated device; "bluez" or "bluez:ADAPTER", the radio of
/// this machine, where the program was built with it.
Result<std::shared_ptr<Link>> makeLink(std::string_view name, const Environment& environment);

/// Whether `makeLink` knows the name.
bool isLinkName(std::string_view name);

/// The names that `makeLink` knows, for people: "sim, bluez[:ADAPTER]".
std::string linkNames();

}  // namespace tandrell
