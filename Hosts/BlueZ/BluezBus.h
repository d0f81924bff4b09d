#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Error.h>

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tandrell {

using BluezProperties = std::map<std::string, sdbus::Variant>;
using BluezInterfaces = std::map<std::string, BluezProperties>;

/// What the bus tells of bluetoothd. Everything is called on the bus's thread, in the order in
/// which it stood on the bus; replies to calls keep their place in that order.
class BluezBusListener {
 public:
  virtual ~BluezBusListener() = default;
  /// Whether bluetoothd is there; told at each change, not at the beginning.
  virtual void didChangeOwner(bool present) = 0;
  virtual void didAdd(const std::string& path, const BluezInterfaces& interfaces) = 0;
  virtual void didRemove(const std::string& path, const std::vector<std::string>& interfaces) = 0;
  virtual void didChange(const std::string& path, const std::string& interface,
                         const BluezProperties& changed,
                         const std::vector<std::string>& invalidated) = 0;
  /// The bus cannot be reached, or has gone: the last call.
  virtual void didLoseBus(const Error& error) = 0;
};

/// A connection to the message bus with a thread of its own, on which everything happens: nothing
/// here blocks a caller, and one thread is all the locking there is. Knows the bus and bluetoothd's
/// name, not what its objects mean.
///
/// Owned by an engine, which is also its listener and outlives it. `start` and `post` may be
/// called from any thread, the rest belongs on the bus's thread.
class BluezBus {
 public:
  using Arguments = std::function<void(sdbus::MethodCall&)>;
  /// The reply, or null and the error: with the domain of its D-Bus name and code 0.
  using Reply = std::function<void(sdbus::MethodReply*, const std::optional<Error>&)>;

  /// An empty address stands for the system's bus.
  BluezBus(BluezBusListener& listener, std::string address);
  /// Ends the thread, after what was posted. Not on that thread.
  ~BluezBus();

  /// Connects and begins to listen.
  void start();
  void post(Work work);

  /// Runs the block after the delay.
  void after(Duration delay, Work work);

  /// Calls a method of bluetoothd. The reply always comes, and never from inside this call; one
  /// that takes longer than the limit is an error, "org.freedesktop.DBus.Error.NoReply".
  void call(const std::string& path, const std::string& interface, const std::string& method,
            const Arguments& arguments, Reply reply, std::chrono::seconds limit = usualLimit);

  static constexpr std::chrono::seconds usualLimit{25};

  /// Serves an object of this process, in place of one that was there; `describe` gives it its
  /// interfaces. Its methods are called on the bus's thread. Of no effect without a bus.
  void serve(const std::string& path, const std::function<void(sdbus::IObject&)>& describe);
  void withdraw(const std::string& path) { objects_.erase(path); }
  /// Lets what is served below the path be listed there.
  void serveTree(const std::string& path);
  /// Signals that the property has the value that its object now says.
  void emitChanged(const std::string& path, const std::string& interface,
                   const std::string& property);
  /// Runs a block that sends something else, such as a reply. If the bus has gone, nothing is sent.
  void send(const std::function<void()>& block);

 private:
  struct Loop;

  void open();
  void listen();
  void didChangeOwner(sdbus::Message& message);
  void didAdd(sdbus::Message& message);
  void didRemove(sdbus::Message& message);
  void didChange(sdbus::Message& message);
  void process();
  void waitForBus();
  void lose(const sdbus::Error& error);
  sdbus::IProxy& proxyOf(const std::string& path);

  BluezBusListener& listener_;
  const std::string address_;
  const std::unique_ptr<Loop> loop_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_;
  std::map<std::string, std::unique_ptr<sdbus::IObject>> objects_;  // those of this process
  std::thread thread_;
};

}  // namespace tandrell
