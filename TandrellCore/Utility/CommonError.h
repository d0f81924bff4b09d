#pragma once

#include <string_view>

namespace tandrell {

/// Misuse: of the library, which reports it where an argument can come from a user, or of the
/// application's own server code, which may report it likewise.
enum class CommonError {
  illegalArgument,  ///< of `send`: a text that is not UTF-8
  illegalState
};
constexpr std::string_view errorDomain(CommonError) { return "CommonError"; }
constexpr std::string_view errorText(CommonError error) {
  return error == CommonError::illegalArgument ? "illegalArgument" : "illegalState";
}

}  // namespace tandrell
