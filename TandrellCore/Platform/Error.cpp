#include <TandrellCore/Platform/Error.h>

#include <cstdio>
#include <cstdlib>

namespace tandrell {

std::string Error::description() const {
  std::string line = domain + " " + std::to_string(code);
  return text.empty() ? line : line + " (" + text + ")";
}

std::string describe(const std::optional<Error>& error) {
  return error ? error->description() : "nil";
}

void fatalError(std::string_view message) {
  std::fprintf(stderr, "Fatal error: %.*s\n", static_cast<int>(message.size()), message.data());
  std::fflush(stderr);
  std::abort();
}

}  // namespace tandrell
