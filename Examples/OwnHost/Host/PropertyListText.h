#pragma once

#include <TandrellCore/Platform/UserDefaults.h>

#include <optional>
#include <string>
#include <string_view>

/// Any text as one word without blanks: letters, digits and full stops stay, every other byte is a
/// per cent sign and two hexadecimal digits. It begins with a colon, so that an empty text is a
/// word too.
std::string toWord(std::string_view text);

/// Absent for anything that `toWord` does not make.
std::optional<std::string> fromWord(std::string_view word);

/// A property list as words between blanks: the kind, then what it holds, for example
/// "text :At%20the%20hut" or "array 2 boolean 1 integer -5". Floating-point numbers and dates are
/// held as their bits, so that each comes back exactly. Arrays and maps say how many elements, or
/// pairs, follow.
std::string toText(const tandrell::PropertyList& list);

/// Absent for anything that `toText` does not make of at most `PropertyList::maximumDepth` levels.
std::optional<tandrell::PropertyList> fromText(const std::string& text);
