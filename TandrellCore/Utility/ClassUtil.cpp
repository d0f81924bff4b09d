#include <TandrellCore/Utility/ClassUtil.h>

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace tandrell {

std::string ClassUtil::nameOf(const std::type_info& type) {
  const std::unique_ptr<char, decltype(&std::free)> demangled(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), &std::free);
  const std::string name = demangled ? demangled.get() : type.name();
  // Only what stands before a template's arguments is looked at.
  const auto scope = name.rfind("::", name.find('<'));
  return scope == std::string::npos ? name : name.substr(scope + 2);
}

}  // namespace tandrell
