#include <CommandLine/Printable.h>

#include <unicode/utf8.h>

namespace tandrell {
namespace {

bool isHarmful(UChar32 c) {
  const bool control = c < 0x20 || (c >= 0x7f && c < 0xa0);
  const bool separator = c == 0x2028 || c == 0x2029;
  return control || separator;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  const auto size = static_cast<std::int32_t>(text.size());
  for (std::int32_t at = 0; at < size;) {
    const auto begin = at;
    UChar32 c = 0;
    U8_NEXT(text.data(), at, size, c);
    if (c < 0) {
      line += "\xEF\xBF\xBD";
    } else if (isHarmful(c)) {
      line += ' ';
    } else {
      line.append(text, begin, at - begin);
    }
  }
  return line;
}

}  // namespace tandrell
