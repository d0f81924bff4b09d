#include <Hosts/System/Interrupt.h>

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>

#include <csignal>
#include <thread>

namespace tandrell {

struct Interrupt::Impl {
  Impl() {
    struct sigaction hangUp {};
    sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) signals.add(SIGHUP);  // nohup asks for that
  }

  asio::io_context context;
  asio::signal_set signals{context, SIGINT, SIGTERM, SIGPIPE};
  std::thread thread;
  bool isHeard = false;
};

Interrupt::Interrupt(QueuePtr queue, Work handler) : impl_(std::make_unique<Impl>()) {
  impl_->signals.async_wait([impl = impl_.get(), queue = std::move(queue),
                             handler = std::move(handler)](const auto& error, int) mutable {
    if (error) return;
    impl->isHeard = true;
    // What is still told on the way to the end may have no reader. The set keeps that signal: to
    // give it up would let the system have it for a moment.
    std::signal(SIGPIPE, SIG_IGN);
    for (const auto signal : {SIGINT, SIGTERM, SIGHUP}) impl->signals.remove(signal);
    queue->async(std::move(handler));
  });
  impl_->thread = std::thread([impl = impl_.get()] { impl->context.run(); });
}

Interrupt::~Interrupt() {
  impl_->context.stop();
  impl_->thread.join();
  const bool isHeard = impl_->isHeard;
  impl_.reset();  // which gives the signals back to the system
  if (isHeard) std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace tandrell
