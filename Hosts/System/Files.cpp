#include <Hosts/System/Files.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace tandrell {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openForReading(const std::string& path) {
  const auto leaveOpen = [](std::FILE*) { return 0; };
  if (path == "-") return File(stdin, leaveOpen);
  return File(std::fopen(path.c_str(), "rb"), std::fclose);
}

Error failure(FileError error, const std::string& path, const std::string& reason) {
  const auto name = path == "-" ? std::string("the standard input") : path;
  return {std::string(errorDomain(error)), static_cast<int>(error),
          fmt::format("cannot read {}: {}", name, reason)};
}

}  // namespace

std::string_view errorText(FileError error) {
  return error == FileError::tooLong ? "tooLong" : "cannotRead";
}

Result<std::string> readWholeFile(const std::string& path) {
  using Outcome = Result<std::string>;
  const auto cannotRead = [&] {
    return Outcome::error(
        failure(FileError::cannotRead, path, std::generic_category().message(errno)));
  };
  const auto file = openForReading(path);
  if (!file) return cannotRead();
  std::string text;
  std::array<char, 65536> piece{};
  while (const auto size = std::fread(piece.data(), 1, piece.size(), file.get())) {
    text.append(piece.data(), size);
    if (text.size() > maximumFileSize) {
      return Outcome::error(failure(FileError::tooLong, path, "it is longer than 64 MiB"));
    }
  }
  if (std::ferror(file.get())) return cannotRead();
  return Outcome::success(std::move(text));
}

}  // namespace tandrell
