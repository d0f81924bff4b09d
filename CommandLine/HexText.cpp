#include <CommandLine/HexText.h>

#include <fmt/format.h>

#include <optional>
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

Result<Data> failure(HexError error, std::string_view text, std::size_t at, std::string_view what) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (const char c : text.substr(0, at)) {
    ++column;
    if (c == '\n') ++line, column = 1;
  }
  return Result<Data>::error({std::string(errorDomain(error)), static_cast<int>(error),
                              fmt::format("line {}, column {}: {}", line, column, what)});
}

}  // namespace

Result<Data> bytesOfHex(std::string_view text) {
  Data bytes;
  std::optional<int> high;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const bool separates = separators.find(c) != separators.npos;
    if (!high && separates) continue;
    if (!high && c == '0' && at + 1 < text.size() && (text[at + 1] | 0x20) == 'x') {
      ++at;
      continue;
    }
    const int digit = digitOf(c);
    if (digit < 0) {
      if (high && separates) {
        return failure(HexError::halfByte, text, at, "a byte has two hexadecimal digits");
      }
      const bool printable = c > ' ' && c < 0x7f;
      return failure(HexError::notHexadecimal, text, at,
                     printable ? fmt::format("'{}' is no hexadecimal digit", c)
                               : std::string("this is no hexadecimal digit"));
    }
    if (high) bytes.push_back(static_cast<std::uint8_t>(*high * 16 + digit));
    high = high ? std::nullopt : std::optional(digit);
  }
  if (high) return failure(HexError::halfByte, text, text.size(), "the last byte is cut in half");
  return Result<Data>::success(std::move(bytes));
}

}  // namespace tandrell
