#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Export.h>

#include <memory>

namespace tandrell {

/// Hears the user's wish to end the process: Ctrl-C, a request to terminate, the end of the terminal
/// or of the reader behind a pipe. The first one submits the handler to the queue; from then on, and
/// once this object is gone, the system does what it always does with them, so that a second Ctrl-C
/// ends a process that hangs. Only a reader that has gone ends nothing from then on.
///
/// At most one in a process at a time. It has a thread of its own, which its destruction ends.
class TANDRELL_API Interrupt {
 public:
  Interrupt(QueuePtr queue, Work handler);
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tandrell
