#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Export.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tandrell {

/// The bytes in consecutive slices of at most `size` (> 0) bytes; the slices look into `data`. No
/// bytes give one empty slice, so that a write of nothing is still one write.
TANDRELL_API std::vector<DataView> chunk(DataView data, std::size_t size);

/// For log lines: printable ASCII as it stands, every other byte as its decimal value in brackets,
/// for example "A[10][127]".
TANDRELL_API std::string debugString(DataView data);

/// Base64 with padding, for log lines and stored text.
TANDRELL_API std::string base64(DataView data);

}  // namespace tandrell
