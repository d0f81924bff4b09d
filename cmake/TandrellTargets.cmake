# One target per folder. Links decide which folders may use which; includes read from the root of
# the tree, for example <TandrellCore/Core/DeviceUtil.h>.

add_library(tandrell-options INTERFACE)
target_compile_features(tandrell-options INTERFACE cxx_std_20)
target_include_directories(tandrell-options INTERFACE ${PROJECT_SOURCE_DIR})

add_library(tandrell-warnings INTERFACE)
target_compile_options(tandrell-warnings INTERFACE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
                       -Woverloaded-virtual -Wcast-qual
                       $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)  # no other compiler knows it

if(TANDRELL_SANITIZE)
  target_compile_options(tandrell-options INTERFACE -fsanitize=${TANDRELL_SANITIZE}
                         -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(tandrell-options INTERFACE -fsanitize=${TANDRELL_SANITIZE})
endif()

# tandrell_library(NAME SOURCES ... LINKS ...): the library of one folder. Without sources it is
# an interface target.
function(tandrell_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  if(ARG_SOURCES)
    add_library(${name} STATIC ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC tandrell-options ${ARG_LINKS} PRIVATE tandrell-warnings)
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON
                          CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE tandrell-options ${ARG_LINKS})
  endif()
endfunction()

# tandrell_test(NAME SOURCES ... LINKS ...): a test program; every case runs in a process of its own.
function(tandrell_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINKS} tandrell-warnings GTest::gmock
                        GTest::gtest_main)
  # GoogleTest's own printers, optimised, are more than g++ 12 understands of its strings.
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 60)
endfunction()
