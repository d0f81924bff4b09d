# What is installed: shared libraries made of the folders' objects, headers, the package files for
# CMake and pkg-config, and the program. Components: library, development, tool.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/tandrellcore-${PROJECT_VERSION_MAJOR})
set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TandrellCore)

# Public headers name these: pkg-config users and CMake users need them too.
set(public_links protobuf::libprotobuf absl::function_ref fmt::fmt nlohmann_json::nlohmann_json)

# tandrell_shared(NAME EXPORT_NAME [SET ...] [COMPONENT ...] FOLDERS ... PUBLIC ... PRIVATE ...): a
# shared library of the objects of these folders' targets, and of nothing else: the messages' code
# must exist once in a process, so what is built on the library links it. A library in an export set
# and a component of its own can be left out of an installation.
function(tandrell_shared name export_name)
  cmake_parse_arguments(ARG "" "SET;COMPONENT" "FOLDERS;PUBLIC;PRIVATE" ${ARGN})
  if(NOT ARG_SET)
    set(ARG_SET TandrellCoreTargets)
    set(ARG_COMPONENT library)
  endif()
  foreach(folder ${ARG_FOLDERS})
    list(APPEND objects $<TARGET_OBJECTS:${folder}>)
  endforeach()
  add_library(${name} SHARED ${objects})
  target_compile_features(${name} INTERFACE cxx_std_20)
  target_include_directories(${name} SYSTEM INTERFACE $<INSTALL_INTERFACE:${header_dir}>)
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
  # What third-party headers instantiate in our objects is theirs, not ours to offer.
  target_link_options(${name} PRIVATE
                      -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
  if(TANDRELL_SANITIZE)
    # The sanitizer's own symbols come from the executable.
    target_link_options(${name} PRIVATE -fsanitize=${TANDRELL_SANITIZE})
  else()
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(${name} PROPERTIES EXPORT_NAME ${export_name} LINKER_LANGUAGE CXX
                        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                        LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  install(TARGETS ${name} EXPORT ${ARG_SET}
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${ARG_COMPONENT}
          NAMELINK_COMPONENT development)
endfunction()

tandrell_shared(tandrellcore TandrellCore
  FOLDERS tandrell-platform tandrell-proto tandrell-utility tandrell-bluetooth tandrell-core
          tandrell-api tandrell-server
  PUBLIC ${public_links}
  PRIVATE absl::strings phonenumber PkgConfig::RE2 ICU::i18n ICU::uc)
tandrell_shared(tandrellcore-simulator Simulator FOLDERS tandrell-simulator PUBLIC tandrellcore)
tandrell_shared(tandrellcore-system-host SystemHost
  FOLDERS tandrell-system-host
  PUBLIC tandrellcore
  PRIVATE SQLite::SQLite3 ICU::uc Threads::Threads)

if(TANDRELL_WITH_BLUEZ)
  tandrell_shared(tandrellcore-bluez BlueZ SET TandrellCoreBlueZTargets COMPONENT bluez
    FOLDERS tandrell-bluez-host
    PUBLIC tandrellcore
    PRIVATE SDBusCpp::sdbus-c++ Threads::Threads)
  install(FILES ${PROJECT_SOURCE_DIR}/Hosts/BlueZ/BluezPeripheralRadio.h
                ${PROJECT_SOURCE_DIR}/Hosts/BlueZ/BluezRadio.h
          DESTINATION ${header_dir}/Hosts/BlueZ COMPONENT development)
  install(EXPORT TandrellCoreBlueZTargets NAMESPACE TandrellCore:: DESTINATION ${config_dir}
          COMPONENT development)
endif()

# Private headers stay here: the suffix Impl marks them, and these.
foreach(folder TandrellCore Simulator Hosts/System)
  get_filename_component(parent ${folder} DIRECTORY)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${header_dir}/${parent}
          COMPONENT development
          FILES_MATCHING
          PATTERN "*Impl.h" EXCLUDE
          PATTERN "BlePeripheral.h" EXCLUDE
          PATTERN "PendingParcel.h" EXCLUDE
          PATTERN "PropertyListCoding.h" EXCLUDE
          PATTERN "ScenarioDevice.h" EXCLUDE
          PATTERN "ScenarioWords.h" EXCLUDE
          PATTERN "SimulatedCentral.h" EXCLUDE
          PATTERN "SimulatedPeripheral.h" EXCLUDE
          PATTERN "QueueGroup.h" EXCLUDE
          PATTERN "SqliteConnection.h" EXCLUDE
          PATTERN "StoreClaim.h" EXCLUDE
          PATTERN "SystemQueue.h" EXCLUDE
          PATTERN "*.h")
endforeach()
install(DIRECTORY ${PROJECT_BINARY_DIR}/generated/TandrellCore DESTINATION ${header_dir}
        COMPONENT development FILES_MATCHING PATTERN "*.pb.h")

# For find_package(TandrellCore 1 CONFIG).
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TandrellCoreConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/TandrellCoreConfig.cmake
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TandrellCoreConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TandrellCoreConfig.cmake
              ${PROJECT_BINARY_DIR}/TandrellCoreConfigVersion.cmake
        DESTINATION ${config_dir} COMPONENT development)
install(EXPORT TandrellCoreTargets NAMESPACE TandrellCore:: DESTINATION ${config_dir}
        COMPONENT development)

# For pkg-config. The prefix is found from the file itself, wherever it has been moved to.
file(RELATIVE_PATH prefix_from_pc /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
function(tandrell_pc name description requires)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT development)
endfunction()
tandrell_pc(tandrellcore "${PROJECT_DESCRIPTION}" "protobuf, absl_function_ref, fmt")
tandrell_pc(tandrellcore-simulator "Simulated radio and communicator, virtual time" tandrellcore)
tandrell_pc(tandrellcore-system-host "Threads, clock and preferences of this machine" tandrellcore)
if(TANDRELL_WITH_BLUEZ)
  tandrell_pc(tandrellcore-bluez "The radio of Linux, over BlueZ" tandrellcore)
endif()

if(TANDRELL_BUILD_PROGRAM)
  install(TARGETS tandrell RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/Scenarios
          DESTINATION ${CMAKE_INSTALL_DATADIR}/tandrellcore COMPONENT tool)
endif()

# Debian packages
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME tandrellcore)
set(CPACK_PACKAGE_VENDOR "TandrellCore")
set(CPACK_PACKAGE_CONTACT "TandrellCore maintainers <maintainers@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL library development)
if(TANDRELL_BUILD_PROGRAM)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
if(TANDRELL_WITH_BLUEZ)
  list(APPEND CPACK_COMPONENTS_ALL bluez)
endif()
set(library_package libtandrellcore${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${PROJECT_DESCRIPTION}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtandrellcore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${library_package} (= ${PROJECT_VERSION}), libprotobuf-dev, libabsl-dev, libfmt-dev, nlohmann-json3-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Headers and package files of TandrellCore, with its simulator")
set(CPACK_DEBIAN_BLUEZ_PACKAGE_NAME libtandrellcore-bluez${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_BLUEZ_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_BLUEZ_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_BLUEZ_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_BLUEZ_PACKAGE_RECOMMENDS bluez)
set(CPACK_DEBIAN_BLUEZ_DESCRIPTION "The radio of Linux for TandrellCore, over BlueZ")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME tandrell)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "Messages by satellite communicator, from the command line")
# The three libraries of one package need each other.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
include(CPack)
