#pragma once

#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Result.h>

#include <cstddef>
#include <string>

namespace tandrell {

/// Why a file could not be read. The error's text names the file and, for `cannotRead`, says what
/// the system said.
enum class FileError { cannotRead, tooLong };
constexpr std::string_view errorDomain(FileError) { return "FileError"; }
TANDRELL_API std::string_view errorText(FileError error);

/// What a file must not exceed, in bytes, to be read whole.
inline constexpr std::size_t maximumFileSize = std::size_t{64} << 20;

/// The whole file, or what the standard input stream gives until its end where the path is "-".
/// Blocks until then.
TANDRELL_API Result<std::string> readWholeFile(const std::string& path);

}  // namespace tandrell
