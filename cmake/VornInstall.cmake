# Install and export rules: the shared libraries with versioned names, the
# public headers (cmake/public-headers.txt, nothing else), the programs, a CMake
# package (find_package(VornCounters CONFIG)) and a pkg-config file.
#
# Included last from the top-level CMakeLists.txt, so every target of the tree
# exists already; programs that only some builds have (the exporter, the SNMP
# subagent) are installed when their targets exist.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VORN_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/vorn-counters)
set(VORN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VornCounters)

# Library target -> exported name (VornCounters::<name>), in link order.
set(vorn_exported_libs
    vorncounters counters
    vorn_model model
    vorn_brim brim
    vorn_pell pell
    vorn_nimlog nimlog
    vorn_zat zat
    vorn_orvo orvo
    vorn_pontil pontil)

set(vorn_installed_libs "")
while(vorn_exported_libs)
  list(POP_FRONT vorn_exported_libs target name)
  if(NOT TARGET ${target})
    continue()
  endif()
  list(APPEND vorn_installed_libs ${target})
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR}
                                             EXPORT_NAME ${name}
                                             INSTALL_RPATH "$ORIGIN")
  # The tree's include directories are source paths; an installed consumer
  # finds the same headers under one include root instead.
  get_target_property(dirs ${target} INTERFACE_INCLUDE_DIRECTORIES)
  if(dirs)
    set(wrapped "")
    foreach(d ${dirs})
      if(d MATCHES "^\\$<")
        list(APPEND wrapped "${d}")
      else()
        list(APPEND wrapped "$<BUILD_INTERFACE:${d}>")
      endif()
    endforeach()
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${wrapped}")
  endif()
  target_include_directories(${target} INTERFACE
                             $<INSTALL_INTERFACE:${VORN_INSTALL_INCLUDEDIR}>)
endwhile()

install(TARGETS ${vorn_installed_libs}
        EXPORT VornCountersTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT runtime
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

# Programs. The agent dlopen()s libvorncounters.so by name: RUNPATH points at the
# package's own library directory, so a staged or relocated install finds it
# as well as one under /usr.
file(RELATIVE_PATH vorn_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(VORN_INSTALLED_PROGRAMS "")
foreach(prog vorn-agent vorn-sim vornctl nimlog-decode vorn-exporter vorn-snmp-subagent)
  if(TARGET ${prog})
    list(APPEND VORN_INSTALLED_PROGRAMS ${prog})
    set_target_properties(${prog} PROPERTIES INSTALL_RPATH "$ORIGIN/${vorn_bin_to_lib}")
    install(TARGETS ${prog} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# Public headers, each under its include root: platform/zat/Ptr.h -> zat/Ptr.h,
# model/interface/X.h -> interface/X.h, counters/factories.h stays as it is.
file(STRINGS ${CMAKE_SOURCE_DIR}/cmake/public-headers.txt vorn_public_headers REGEX "^[^#]")
foreach(h ${vorn_public_headers})
  string(REGEX REPLACE "^(platform|model)/" "" rel "${h}")
  get_filename_component(dir "${rel}" DIRECTORY)
  install(FILES ${CMAKE_SOURCE_DIR}/${h} DESTINATION ${VORN_INSTALL_INCLUDEDIR}/${dir})
endforeach()

# CMake package.
install(EXPORT VornCountersTargets NAMESPACE VornCounters:: DESTINATION ${VORN_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/VornCountersConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/VornCountersConfig.cmake
                              INSTALL_DESTINATION ${VORN_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/VornCountersConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/VornCountersConfig.cmake
              ${CMAKE_BINARY_DIR}/VornCountersConfigVersion.cmake
        DESTINATION ${VORN_INSTALL_CMAKEDIR})

# pkg-config: paths relative to the .pc file, so a staged install works too.
file(RELATIVE_PATH vorn_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" vorn_pc_to_prefix "${vorn_pc_to_prefix}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/vorn-counters.pc.in ${CMAKE_BINARY_DIR}/vorn-counters.pc
               @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vorn-counters.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The installed header set must stay the closure of the public roots.
if(VORN_BUILD_TESTS)
  add_test(NAME public_headers_list_current
           COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/public-headers.sh --check)
endif()
