# The libraries that the project is built from; scripts/install-dependencies has their packages.

find_package(Threads REQUIRED)
find_package(Protobuf REQUIRED)
find_package(absl REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(ICU REQUIRED COMPONENTS i18n uc)
find_package(PkgConfig REQUIRED)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)

# These two have no package file.
find_path(PHONENUMBER_INCLUDE_DIR phonenumbers/phonenumberutil.h REQUIRED)
find_library(PHONENUMBER_LIBRARY phonenumber REQUIRED)
add_library(phonenumber INTERFACE)
target_include_directories(phonenumber SYSTEM INTERFACE ${PHONENUMBER_INCLUDE_DIR})
target_link_libraries(phonenumber INTERFACE ${PHONENUMBER_LIBRARY} protobuf::libprotobuf)

find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(asio INTERFACE)
target_include_directories(asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
# How it allocates would else depend on whether a source has included the standard library before it.
target_compile_definitions(asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED
                           ASIO_HAS_STD_ALIGNED_ALLOC=1)
target_link_libraries(asio INTERFACE Threads::Threads)
if(TANDRELL_SANITIZE STREQUAL "thread")
  # That sanitizer does not understand fences; the locks of a context order everything already.
  target_compile_definitions(asio INTERFACE ASIO_DISABLE_FENCED_BLOCK)
endif()

if(TANDRELL_WITH_BLUEZ)
  find_package(sdbus-c++ REQUIRED)
endif()
if(TANDRELL_BUILD_PROGRAM)
  find_package(CLI11 REQUIRED)
  find_package(spdlog REQUIRED)
endif()
if(TANDRELL_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
