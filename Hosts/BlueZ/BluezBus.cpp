#include <Hosts/BlueZ/BluezBus.h>

#include <asio.hpp>
#include <poll.h>

#include <utility>

namespace tandrell {
namespace {

constexpr const char* service = "org.bluez";
constexpr const char* objectManager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

Error errorOf(const sdbus::Error& error) { return {error.getName(), 0, error.getMessage()}; }

}  // namespace

struct BluezBus::Loop {
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  asio::posix::stream_descriptor descriptor{context};
  asio::steady_timer timer{context};
  bool waitsForInput = false;
  bool waitsForOutput = false;
};

BluezBus::BluezBus(BluezBusListener& listener, std::string address)
    : listener_(listener), address_(std::move(address)), loop_(std::make_unique<Loop>()) {}

BluezBus::~BluezBus() {
  post([this] { loop_->context.stop(); });
  if (thread_.joinable()) thread_.join();
  // The descriptor belongs to the connection.
  if (loop_->descriptor.is_open()) loop_->descriptor.release();
  proxies_.clear();
  objects_.clear();
}

void BluezBus::start() {
  post([this] { open(); });
  thread_ = std::thread([this] { loop_->context.run(); });
}

void BluezBus::post(Work work) { asio::post(loop_->context, std::move(work)); }

void BluezBus::after(Duration delay, Work work) {
  const auto timer = std::make_shared<asio::steady_timer>(loop_->context, delay);
  timer->async_wait([timer, work = std::move(work)](const asio::error_code& error) {
    if (!error) work();
  });
}

void BluezBus::open() {
  try {
    connection_ = address_.empty() ? sdbus::createSystemBusConnection()
                                   : sdbus::createSessionBusConnectionWithAddress(address_);
    listen();
    loop_->descriptor.assign(connection_->getEventLoopPollData().fd);
  } catch (const sdbus::Error& error) {
    return lose(error);
  }
  process();
}

void BluezBus::listen() {
  const auto on = [this](const std::string& match, void (BluezBus::*handle)(sdbus::Message&)) {
    const auto handler = [this, handle](sdbus::Message& message) { (this->*handle)(message); };
    connection_->addMatch("type='signal'," + match, handler, sdbus::floating_slot);
  };
  on("sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='NameOwnerChanged',"
     "arg0='org.bluez'",
     &BluezBus::didChangeOwner);
  const std::string fromBluez = "sender='org.bluez',interface='";
  on(fromBluez + objectManager + "',member='InterfacesAdded'", &BluezBus::didAdd);
  on(fromBluez + objectManager + "',member='InterfacesRemoved'", &BluezBus::didRemove);
  on(fromBluez + propertiesInterface + "',member='PropertiesChanged'", &BluezBus::didChange);
}

void BluezBus::didChangeOwner(sdbus::Message& message) {
  std::string name, before, now;
  message >> name >> before >> now;
  // A daemon that is replaced leaves and comes.
  if (!before.empty()) listener_.didChangeOwner(false);
  if (!now.empty()) listener_.didChangeOwner(true);
}

void BluezBus::didAdd(sdbus::Message& message) {
  sdbus::ObjectPath path;
  BluezInterfaces interfaces;
  message >> path >> interfaces;
  listener_.didAdd(path, interfaces);
}

void BluezBus::didRemove(sdbus::Message& message) {
  sdbus::ObjectPath path;
  std::vector<std::string> interfaces;
  message >> path >> interfaces;
  listener_.didRemove(path, interfaces);
}

void BluezBus::didChange(sdbus::Message& message) {
  std::string interface;
  BluezProperties changed;
  std::vector<std::string> invalidated;
  message >> interface >> changed >> invalidated;
  listener_.didChange(message.getPath(), interface, changed, invalidated);
}

/// Handles what has arrived, and waits for more.
void BluezBus::process() {
  if (!connection_) return;
  try {
    while (connection_->processPendingRequest()) {
    }
  } catch (const sdbus::Error& error) {
    return lose(error);
  }
  waitForBus();
}

void BluezBus::waitForBus() {
  const auto poll = connection_->getEventLoopPollData();
  const auto wait = [this](bool& waits, asio::posix::stream_descriptor::wait_type kind) {
    if (std::exchange(waits, true)) return;
    loop_->descriptor.async_wait(kind, [this, &waits](const asio::error_code& error) {
      waits = false;
      if (!error) process();
    });
  };
  wait(loop_->waitsForInput, asio::posix::stream_descriptor::wait_read);
  if (poll.events & POLLOUT) {
    wait(loop_->waitsForOutput, asio::posix::stream_descriptor::wait_write);
  }
  loop_->timer.cancel();
  const auto timeout = poll.getRelativeTimeout();
  if (!timeout || *timeout == std::chrono::microseconds::max()) return;
  loop_->timer.expires_after(*timeout);
  loop_->timer.async_wait([this](const asio::error_code& error) {
    if (!error) process();
  });
}

void BluezBus::lose(const sdbus::Error& error) {
  if (loop_->descriptor.is_open()) loop_->descriptor.release();
  loop_->timer.cancel();
  listener_.didLoseBus(errorOf(error));
}

sdbus::IProxy& BluezBus::proxyOf(const std::string& path) {
  auto& proxy = proxies_[path];
  if (!proxy) proxy = sdbus::createProxy(*connection_, service, path);
  return *proxy;
}

void BluezBus::call(const std::string& path, const std::string& interface,
                    const std::string& method, const Arguments& arguments, Reply reply,
                    std::chrono::seconds limit) {
  if (!connection_) {
    return post([reply = std::move(reply)] {
      reply(nullptr, Error("org.freedesktop.DBus.Error.Disconnected", 0, "no bus"));
    });
  }
  try {
    auto& proxy = proxyOf(path);
    auto message = proxy.createMethodCall(interface, method);
    if (arguments) arguments(message);
    proxy.callMethod(
        message,
        [reply](sdbus::MethodReply& answer, const sdbus::Error* error) {
          error ? reply(nullptr, errorOf(*error)) : reply(&answer, std::nullopt);
        },
        limit);
  } catch (const sdbus::Error& error) {
    return post([reply = std::move(reply), error = errorOf(error)] { reply(nullptr, error); });
  }
  // The call may have left bytes to be written, and has a time limit that is to be watched.
  post([this] { process(); });
}

void BluezBus::send(const std::function<void()>& block) {
  if (!connection_) return;
  try {
    block();
  } catch (const sdbus::Error&) {
    return;  // the bus has gone, which the next look at it tells
  }
  post([this] { process(); });
}

void BluezBus::serve(const std::string& path,
                     const std::function<void(sdbus::IObject&)>& describe) {
  withdraw(path);
  send([&] {
    auto object = sdbus::createObject(*connection_, path);
    describe(*object);
    object->finishRegistration();
    objects_[path] = std::move(object);
  });
}

void BluezBus::serveTree(const std::string& path) {
  send([&] { connection_->addObjectManager(path, sdbus::floating_slot); });
}

void BluezBus::emitChanged(const std::string& path, const std::string& interface,
                           const std::string& property) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return;
  send([&] { object->second->emitPropertiesChangedSignal(interface, {property}); });
}

}  // namespace tandrell
