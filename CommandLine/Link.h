#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Environment.h>
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

/// The links of this program: "sim", a simulated device.
Result<std::shared_ptr<Link>> makeLink(std::string_view name, const Environment& environment);

/// The names that `makeLink` knows.
const std::vector<std::string>& linkNames();

}  // namespace tandrell
