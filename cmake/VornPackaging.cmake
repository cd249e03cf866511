# CPack settings for the Debian package: `cpack -G DEB` in a build directory
# gives vorn-counters_<version>_<arch>.deb with the libraries, the programs, the
# public headers and the CMake and pkg-config files. Library dependencies are
# worked out by dpkg-shlibdeps from what the binaries link.
set(CPACK_PACKAGE_NAME vorn-counters)
set(CPACK_PACKAGE_VENDOR "vorn-counters developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Counters component of a switch forwarding agent, its agent and reader")
set(vorn_platforms "")
if(VORN_BUILD_SIM)
  list(APPEND vorn_platforms "simulated")
endif()
if(TARGET vorn_platform_linux)
  list(APPEND vorn_platforms "Linux")
endif()
list(JOIN vorn_platforms ", " vorn_platforms_text)
list(JOIN VORN_INSTALLED_PROGRAMS ", " vorn_programs_text)
set(CPACK_PACKAGE_DESCRIPTION
    "The counters component library (libvorncounters) with the platform libraries it
needs; the programs ${vorn_programs_text} (agent platforms: ${vorn_platforms_text});
the public headers, a CMake package (find_package(VornCounters)) and a
pkg-config file (vorn-counters) for agents built against it.")
set(CPACK_PACKAGE_CONTACT "vorn-counters developers <vorn-counters@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The package's own libraries resolve inside the package through the programs'
# RUNPATH; a shlibs file lets packages built against these libraries depend on
# this version or later.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

include(CPack)
