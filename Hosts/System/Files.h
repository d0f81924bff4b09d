#pragma once

#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Result.h>

#include <cstddef>
#include <functional>
#include <string>

namespace tandrell {

/// Why a file could not be read. The error's text names the file and, for `cannotRead`, says what
/// the system said.
enum class FileError { cannotRead, tooLong };
constexpr std::string_view errorDomain(FileError) { return "FileError"; }
TANDRELL_API std::string_view errorText(FileError error);

/// Gives a file from its beginning to its end, up to 64 KiB at a time, or what the standard input
/// stream gives where the path is "-". An empty piece is the end; each call blocks until it has
/// one.
using FileReader = std::function<Result<std::string>()>;
TANDRELL_API Result<FileReader> readPieces(const std::string& path);

/// What a file must not exceed, in bytes, to be read whole.
inline constexpr std::size_t maximumFileSize = std::size_t{64} << 20;

/// The whole of it. Blocks until then.
TANDRELL_API Result<std::string> readWholeFile(const std::string& path);

}  // namespace tandrell
