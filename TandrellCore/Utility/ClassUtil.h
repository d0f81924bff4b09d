#pragma once

#include <TandrellCore/Platform/Export.h>

#include <string>
#include <string_view>
#include <typeinfo>

namespace tandrell {

/// Names for diagnostics.
class TANDRELL_API ClassUtil {
 public:
  /// The name of the value's dynamic type, without its namespaces.
  template <class T>
  static std::string className(const T& value) {
    return nameOf(typeid(value));
  }
  /// The name of a type itself.
  template <class T>
  static std::string className() {
    return nameOf(typeid(T));
  }

  /// The class name, a full stop and the method: "BleUtility.start".
  template <class T>
  static std::string currentMethod(const T& value, std::string_view method) {
    return className(value) + "." + std::string(method);
  }

 private:
  static std::string nameOf(const std::type_info& type);
};

}  // namespace tandrell
