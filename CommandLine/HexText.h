#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Result.h>

#include <string_view>

namespace tandrell {

/// What is wrong with a text of bytes; the error's text names line and column, counted from 1.
enum class HexError { notHexadecimal, halfByte };
constexpr std::string_view errorDomain(HexError) { return "HexError"; }

/// The bytes of a hexadecimal text. Blanks, line breaks, commas, colons and hyphens may stand
/// between bytes, "0x" in front of any; either case.
Result<Data> bytesOfHex(std::string_view text);

}  // namespace tandrell
