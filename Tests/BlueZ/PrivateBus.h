#pragma once

#include <TandrellCore/Platform/Error.h>

#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

namespace tandrell {

/// A message bus of the test's own; it ends with this. On a strict one nobody may talk to
/// bluetoothd.
class PrivateBus {
 public:
  explicit PrivateBus(bool strict = false) {
    const auto* kind = strict ? "--config-file=" TANDRELL_STRICT_BUS : "--session";
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) fatalError("PrivateBus: no pipe");
    process_ = ::fork();
    if (process_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      ::dup2(pipe[1], STDOUT_FILENO);
      ::close(STDERR_FILENO);
      ::execlp("dbus-daemon", "dbus-daemon", kind, "--nofork", "--print-address", nullptr);
      ::_exit(127);
    }
    ::close(pipe[1]);
    auto* stream = ::fdopen(pipe[0], "r");
    std::array<char, 256> line{};
    if (::fgets(line.data(), line.size(), stream)) address_ = line.data();
    ::fclose(stream);
    if (address_.empty()) fatalError("PrivateBus: dbus-daemon did not start");
    address_.pop_back();
  }
  ~PrivateBus() {
    ::kill(process_, SIGTERM);
    ::waitpid(process_, nullptr, 0);
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return address_; }

 private:
  pid_t process_ = 0;
  std::string address_;
};

}  // namespace tandrell
