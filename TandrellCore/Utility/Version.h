#pragma once

#include <TandrellCore/Platform/Export.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace tandrell {

/// A three-part version such as the device's firmware version. It is compared for equality only.
class TANDRELL_API Version {
 public:
  /// Reads up to three decimal numbers between full stops; empty pieces are skipped and those
  /// beyond the third ignored. A second or third piece that is missing or not a number counts as 0.
  /// Absent when there is no piece, when the first is not a number, or when any is negative:
  /// "4.x.1" is 4.0.1, "1..2" is 1.2.0, "v1.2" and "1.-2" are absent.
  static std::optional<Version> build(std::string_view text);

  /// The three numbers.
  std::uint64_t major() const { return major_; }
  std::uint64_t minor() const { return minor_; }
  std::uint64_t patch() const { return patch_; }

  friend bool operator==(const Version&, const Version&) = default;

 private:
  Version(std::uint64_t major, std::uint64_t minor, std::uint64_t patch)
      : major_(major), minor_(minor), patch_(patch) {}

  std::uint64_t major_;
  std::uint64_t minor_;
  std::uint64_t patch_;
};

}  // namespace tandrell
