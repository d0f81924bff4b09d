#include <Hosts/System/StoreClaim.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace tandrell {
namespace {

using Outcome = Result<Claim>;

constexpr std::string_view holderBegin = "process ";

Outcome failed(ClaimError error, std::string_view name, std::string_view cause,
               const std::string& path) {
  return Outcome::error({std::string(errorDomain(error)), static_cast<int>(error),
                         fmt::format("{} {}; path={}", name, cause, path)});
}

/// Whatever the name is, the file lies beside the store.
std::string lockPath(const std::string& path, std::string_view name) {
  std::string result = path + ".";
  for (const char c : name) {
    const bool isPlain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    isPlain ? result.push_back(c)
            : void(result += fmt::format("%{:02x}", static_cast<unsigned char>(c)));
  }
  return result + ".lock";
}

/// Empty where the file is; its first line.
std::string holderIn(int file) {
  std::array<char, 100> line{};
  const auto size = ::pread(file, line.data(), line.size(), 0);
  const auto end = line.begin() + std::max<ssize_t>(size, 0);
  std::string holder(line.begin(), std::find(line.begin(), end, '\n'));
  std::ranges::replace_if(holder, [](char c) { return c < ' ' || c > '~'; }, '?');
  return holder;
}

/// The lock holds without this too: a full disk may keep the name away.
void writeHolder(int file) {
  const auto line =
      fmt::format("{}{} ({})\n", holderBegin, ::getpid(), program_invocation_short_name);
  const auto written = ::pwrite(file, line.data(), line.size(), 0);
  [[maybe_unused]] const int cut = ::ftruncate(file, std::max<ssize_t>(written, 0));
}

}  // namespace

Result<Claim> claimBeside(const std::string& store, std::string_view name) {
  const auto path = lockPath(store, name);
  const auto cannot = [&](std::string_view cause) {
    return failed(ClaimError::cannotClaim, name, fmt::format("cannot be claimed: {}", cause), path);
  };
  const auto reason = [] { return std::generic_category().message(errno); };
  const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const int file = ::open(path.c_str(), flags, 0600);
  if (file < 0) return cannot(reason());
  const Claim claim(new int(file), [](const int* opened) {
    ::close(*opened);
    delete opened;
  });
  struct stat status{};
  if (::fstat(file, &status) != 0) return cannot(reason());
  const auto holder = S_ISREG(status.st_mode) ? holderIn(file) : "?";
  if (!holder.empty() && !holder.starts_with(holderBegin)) return cannot("not a lock of a store");
  if (::flock(file, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) return cannot(reason());
    const auto who = holder.empty() ? "another holder" : holder;
    return failed(ClaimError::held, name, "is held by " + who, path);
  }
  writeHolder(file);
  return Outcome::success(claim);
}

}  // namespace tandrell
