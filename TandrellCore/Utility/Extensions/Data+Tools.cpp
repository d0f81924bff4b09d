#include <TandrellCore/Utility/Extensions/Data+Tools.h>

#include <absl/strings/escaping.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace tandrell {

std::vector<DataView> chunk(DataView data, std::size_t size) {
  std::vector<DataView> slices;
  std::size_t offset = 0;
  do {
    const auto count = std::min(size, data.size() - offset);
    slices.push_back(data.subspan(offset, count));
    offset += count;
  } while (offset < data.size());
  return slices;
}

std::string debugString(DataView data) {
  std::string text;
  for (const auto byte : data) {
    if (byte >= 32 && byte <= 126) {
      text.push_back(static_cast<char>(byte));
    } else {
      fmt::format_to(std::back_inserter(text), "[{}]", byte);
    }
  }
  return text;
}

std::string base64(DataView data) {
  return absl::Base64Escape(
      absl::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

}  // namespace tandrell
