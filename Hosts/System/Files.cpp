#include <Hosts/System/Files.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace tandrell {
namespace {

constexpr std::size_t pieceSize = 65536;

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

Result<FileReader> readPieces(const std::string& path) {
  const auto cannotRead = [path] {
    return failure(FileError::cannotRead, path, std::generic_category().message(errno));
  };
  const std::shared_ptr<std::FILE> file = openForReading(path);
  if (!file) return Result<FileReader>::error(cannotRead());
  return Result<FileReader>::success([file, cannotRead] {
    std::string piece(pieceSize, '\0');
    piece.resize(std::fread(piece.data(), 1, piece.size(), file.get()));
    return std::ferror(file.get()) ? Result<std::string>::error(cannotRead())
                                   : Result<std::string>::success(std::move(piece));
  });
}

Result<std::string> readWholeFile(const std::string& path) {
  using Outcome = Result<std::string>;
  const auto reader = readPieces(path);
  if (!reader.isSuccess()) return Outcome::error(reader.error());
  std::string text;
  while (true) {
    const auto piece = reader.value()();
    if (!piece.isSuccess() || piece.value().empty()) {
      return piece.isSuccess() ? Outcome::success(std::move(text)) : piece;
    }
    text += piece.value();
    if (text.size() > maximumFileSize) {
      return Outcome::error(failure(FileError::tooLong, path, "it is longer than 64 MiB"));
    }
  }
}

}  // namespace tandrell
