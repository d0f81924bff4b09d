#include <TandrellCore/Utility/Version.h>

#include <algorithm>
#include <charconv>
#include <vector>

namespace tandrell {
namespace {

std::vector<std::string_view> piecesOf(std::string_view text) {
  std::vector<std::string_view> pieces;
  while (!text.empty()) {
    const auto piece = text.substr(0, text.find('.'));
    if (!piece.empty()) pieces.push_back(piece);
    text.remove_prefix(std::min(piece.size() + 1, text.size()));
  }
  return pieces;
}

/// A signed decimal integer of 64 bits, the whole piece or nothing; a leading plus sign is allowed.
std::optional<std::int64_t> integer(std::string_view piece) {
  if (piece.starts_with('+') && !piece.starts_with("+-")) piece.remove_prefix(1);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
  if (error != std::errc() || end != piece.data() + piece.size()) return std::nullopt;
  return value;
}

std::int64_t integerOrZero(const std::vector<std::string_view>& pieces, std::size_t index) {
  return index < pieces.size() ? integer(pieces[index]).value_or(0) : 0;
}

}  // namespace

std::optional<Version> Version::build(std::string_view text) {
  const auto pieces = piecesOf(text);
  if (pieces.empty()) return std::nullopt;
  const auto major = integer(pieces[0]);
  const auto minor = integerOrZero(pieces, 1);
  const auto patch = integerOrZero(pieces, 2);
  if (!major || *major < 0 || minor < 0 || patch < 0) return std::nullopt;
  return Version(static_cast<std::uint64_t>(*major), static_cast<std::uint64_t>(minor),
                 static_cast<std::uint64_t>(patch));
}

}  // namespace tandrell
