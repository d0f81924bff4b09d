#pragma once

#include <string>
#include <string_view>

namespace tandrell {

/// A text from outside as a terminal may be given it: it must neither break its line nor command
/// the terminal. Control characters and separators of lines are blanks, a byte that is not UTF-8 is
/// U+FFFD.
std::string printable(std::string_view text);

}  // namespace tandrell
