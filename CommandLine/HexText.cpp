#include <CommandLine/HexText.h>

#include <fmt/format.h>

#include <string>
#include <utility>

namespace tandrell {
namespace {

constexpr std::string_view separators = " \t\r\n,:-";

int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

Result<Data> HexReader::read(std::string_view part) {
  Data bytes;
  for (const char c : part) {
    const bool separates = separators.find(c) != separators.npos;
    const bool prefixes = high_ == 0 && (c | 0x20) == 'x';
    const int digit = digitOf(c);
    if (high_ && separates) {
      return Result<Data>::error(failure(HexError::halfByte, "a byte has two hexadecimal digits"));
    }
    if (digit < 0 && !separates && !prefixes) {
      const bool printable = c > ' ' && c < 0x7f;
      return Result<Data>::error(failure(HexError::notHexadecimal,
                                         printable ? fmt::format("'{}' is no hexadecimal digit", c)
                                                   : "this is no hexadecimal digit"));
    }
    if (high_ && digit >= 0) bytes.push_back(static_cast<std::uint8_t>(*high_ * 16 + digit));
    high_ = high_ || separates ? std::nullopt : std::optional(digit);
    ++column_;
    if (c == '\n') ++line_, column_ = 1;
  }
  return Result<Data>::success(std::move(bytes));
}

std::optional<Error> HexReader::end() const {
  if (!high_) return std::nullopt;
  return failure(HexError::halfByte, "the last byte is cut in half");
}

Error HexReader::failure(HexError error, std::string_view what) const {
  return {std::string(errorDomain(error)), static_cast<int>(error),
          fmt::format("line {}, column {}: {}", line_, column_, what)};
}

}  // namespace tandrell
