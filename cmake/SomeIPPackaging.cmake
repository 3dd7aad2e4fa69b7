# Install rules, the CMake and pkg-config packages, the .deb, and the tests that prove them by building
# host programs against the result. Included from the top-level CMakeLists.txt when SOMEIP_INSTALL is on.
include(CMakePackageConfigHelpers)

set(SOMEIP_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/someip_parser_vaq)
set(SOMEIP_HEADER_INSTALL_DIR ${CMAKE_INSTALL_INCLUDEDIR}/someip_parser_vaq)

# The public headers (SOMEIP_PUBLIC_HEADERS) keep their layout below include/someip_parser_vaq/, so that
# the includes hosts already write ("ZQSomeIPParserAPI.h", "someip/zq_someip_log.h",
# "compiled/ZQSomeIPFormatSet.h") keep working. The internal headers are not installed.
install(TARGETS someip_parser_vaq EXPORT someip_parser_vaqTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(_someip_header ${SOMEIP_PUBLIC_HEADERS})
  get_filename_component(_someip_header_dir ${_someip_header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/someip_serializer_so/${_someip_header}
    DESTINATION ${SOMEIP_HEADER_INSTALL_DIR}/${_someip_header_dir})
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/include/someip_parser_vaq/ZQSomeIPVersion.h
  DESTINATION ${SOMEIP_HEADER_INSTALL_DIR})

# The capture reader and the importer: a library and its one header each.
foreach(_someip_part someip_capture:capture/ZQSomeIPCapture.h someip_import:importer/ZQSomeIPImport.h)
  string(REPLACE ":" ";" _someip_part ${_someip_part})
  list(GET _someip_part 0 _someip_target)
  list(GET _someip_part 1 _someip_header)
  if(TARGET ${_someip_target})
    set_target_properties(${_someip_target} PROPERTIES EXPORT_NAME ${_someip_target})
    target_include_directories(${_someip_target} INTERFACE $<INSTALL_INTERFACE:${SOMEIP_HEADER_INSTALL_DIR}>)
    install(TARGETS ${_someip_target} EXPORT someip_parser_vaqTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(FILES ${PROJECT_SOURCE_DIR}/${_someip_header} DESTINATION ${SOMEIP_HEADER_INSTALL_DIR})
  endif()
endforeach()

if(TARGET someip-json)
  # Found next to the tool wherever the prefix is; a no-op for the system's library directories.
  file(RELATIVE_PATH _someip_bin_to_lib /p/${CMAKE_INSTALL_BINDIR} /p/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(someip-json PROPERTIES INSTALL_RPATH "$ORIGIN/${_someip_bin_to_lib}")
  install(TARGETS someip-json RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# CMake package: someip_parser_vaq::someip_parser_vaq (and ::someip_capture, ::someip_import), relocatable.
install(EXPORT someip_parser_vaqTargets NAMESPACE someip_parser_vaq::
  DESTINATION ${SOMEIP_CMAKE_INSTALL_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/someip_parser_vaqConfig.cmake.in
  ${PROJECT_BINARY_DIR}/someip_parser_vaqConfig.cmake INSTALL_DESTINATION ${SOMEIP_CMAKE_INSTALL_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/someip_parser_vaqConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/someip_parser_vaqConfig.cmake
              ${PROJECT_BINARY_DIR}/someip_parser_vaqConfigVersion.cmake
  DESTINATION ${SOMEIP_CMAKE_INSTALL_DIR})

# pkg-config: paths relative to the .pc file itself, because the prefix is only known at install time
# (cmake --install --prefix, or /usr inside the .deb).
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(SOMEIP_PC_PREFIX_FROM_PCDIR "")
  set(SOMEIP_PC_LIBDIR ${CMAKE_INSTALL_FULL_LIBDIR})
  set(SOMEIP_PC_INCLUDEDIR ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH SOMEIP_PC_PREFIX_FROM_PCDIR /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
  set(SOMEIP_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(SOMEIP_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/someip_parser_vaq.pc.in ${PROJECT_BINARY_DIR}/someip_parser_vaq.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/someip_parser_vaq.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# cpack -G DEB: one package with the library, the tool and everything needed to build against them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME someip_parser_vaq)
set(CPACK_PACKAGE_VENDOR "The someip_parser_vaq authors")
# Whoever builds the .deb maintains it: set the address (-DSOMEIP_PACKAGE_CONTACT="Name <address>").
set(SOMEIP_PACKAGE_CONTACT "someip_parser_vaq maintainers <maintainers@someip-parser-vaq.invalid>" CACHE STRING
    "Maintainer of the .deb: Name <address>")
if(SOMEIP_PACKAGE_CONTACT STREQUAL "The someip_parser_vaq authors")  # the default of earlier trees: no address
  set(SOMEIP_PACKAGE_CONTACT "someip_parser_vaq maintainers <maintainers@someip-parser-vaq.invalid>" CACHE STRING
      "Maintainer of the .deb: Name <address>" FORCE)
endif()
if(NOT SOMEIP_PACKAGE_CONTACT MATCHES "^[^<>]+ <[^<>@ ]+@[^<>@ ]+>$")
  message(FATAL_ERROR "SOMEIP_PACKAGE_CONTACT: expected 'Name <address>', not '${SOMEIP_PACKAGE_CONTACT}'")
endif()
set(CPACK_PACKAGE_CONTACT "${SOMEIP_PACKAGE_CONTACT}")
# Binaries go in stripped; their debug symbols, when wanted, in a -dbgsym package of their own.
set(CPACK_STRIP_FILES ON)
option(SOMEIP_PACKAGE_DEBUGINFO "Also write the debug symbols into a separate -dbgsym package" OFF)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ${SOMEIP_PACKAGE_DEBUGINFO})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "SOME/IP message payloads between their binary wire form and JSON")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_DEBIAN_PACKAGE_NAME libsomeip-parser-vaq)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION [[libsomeip_parser_vaq converts SOME/IP payloads to JSON text and back, reading
what each message holds from format description files at run time. This
package holds the shared library, its headers, its CMake and pkg-config
packages, and the someip-json command-line tool.]])
# Run-time dependencies come from the binaries themselves; building a host also needs jsoncpp's headers.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libjsoncpp-dev, pkg-config")
# The Python module is built for one interpreter version; frames need pandas and numpy.
if(SOMEIP_PYTHON_DEB_DEPENDS)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "${SOMEIP_PYTHON_DEB_DEPENDS}")
  set(CPACK_DEBIAN_PACKAGE_SUGGESTS "python3-numpy, python3-pandas, python3-matplotlib")
endif()
include(CPack)

# Host programs built against the result, as a host would: through find_package and pkg-config from an
# installed prefix, through add_subdirectory of this tree, and the .deb's contents.
if(SOMEIP_BUILD_TESTS)
  # A sanitized library needs sanitized hosts (its runtime comes with the executable).
  set(SOMEIP_CONSUMER_FLAGS "")
  if(SOMEIP_SANITIZE)
    set(SOMEIP_CONSUMER_FLAGS "-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer")
  elseif(SOMEIP_TSAN)
    set(SOMEIP_CONSUMER_FLAGS "-fsanitize=thread")
  endif()
  set(_someip_consumer_env
    SOURCE_DIR=${PROJECT_SOURCE_DIR}
    BUILD_DIR=${PROJECT_BINARY_DIR}
    WORK_DIR=${PROJECT_BINARY_DIR}/consumer
    LIBDIR=${CMAKE_INSTALL_LIBDIR}
    VERSION=${PROJECT_VERSION}
    SOVERSION=${PROJECT_VERSION_MAJOR}
    CMAKE=${CMAKE_COMMAND}
    CPACK=${CMAKE_CPACK_COMMAND}
    GENERATOR=${CMAKE_GENERATOR}
    CXX=${CMAKE_CXX_COMPILER}
    PKG_CONFIG=${PKG_CONFIG_EXECUTABLE}
    "FLAGS=${SOMEIP_CONSUMER_FLAGS}"
    WITH_TOOL=$<TARGET_EXISTS:someip-json>
    WITH_CAPTURE=$<TARGET_EXISTS:someip_capture>)
  foreach(mode install find_package pkg_config subdirectory deb)
    add_test(NAME Package.${mode} COMMAND ${CMAKE_COMMAND} -E env ${_someip_consumer_env}
             bash ${PROJECT_SOURCE_DIR}/tests/consumer/check.sh ${mode})
  endforeach()
  set_tests_properties(Package.install PROPERTIES FIXTURES_SETUP someip_installed)
  set_tests_properties(Package.find_package Package.pkg_config PROPERTIES FIXTURES_REQUIRED someip_installed)
  # Builds the library again inside a host's tree, with both cores.
  set_tests_properties(Package.subdirectory PROPERTIES PROCESSORS 2)
  # cpack first brings the build tree up to date; nothing else may be running its binaries meanwhile.
  set_tests_properties(Package.deb PROPERTIES RUN_SERIAL ON)
endif()
