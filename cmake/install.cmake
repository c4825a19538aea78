# Install rules, the CMake package, the pkg-config files and CPack. Every
# installed file refers to the others by relative paths, so an installed
# prefix can be moved or unpacked anywhere.
include(CMakePackageConfigHelpers)

set(VELL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vell-ds)

install(TARGETS vell-ds vell-ds-host vell-ds-host-archive
  EXPORT vell-ds-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${VELL_INCLUDE_DIR}/ ${VELL_GENERATED_INCLUDE_DIR}/
        DESTINATION ${VELL_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/host/sc_host_default.h
        DESTINATION ${VELL_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vell-ds)

install(EXPORT vell-ds-targets NAMESPACE vell-ds::
        DESTINATION ${VELL_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vell-ds-config.cmake.in
  ${PROJECT_BINARY_DIR}/vell-ds-config.cmake
  INSTALL_DESTINATION ${VELL_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vell-ds-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vell-ds-config.cmake
              ${PROJECT_BINARY_DIR}/vell-ds-config-version.cmake
        DESTINATION ${VELL_CMAKE_DIR})

# pkg-config files find the prefix from their own location.
file(RELATIVE_PATH VELL_PC_TO_PREFIX /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
string(REGEX REPLACE "/$" "" VELL_PC_TO_PREFIX ${VELL_PC_TO_PREFIX})
foreach(pc vell-ds vell-ds-host)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in
                 ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

if(vell_top_level)
  set(CPACK_PACKAGE_NAME vell-ds)
  set(CPACK_PACKAGE_VENDOR "vell-ds")
  set(CPACK_PACKAGE_CONTACT "vell-ds maintainers")
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
      "Data structures of a packet-processing engine, and the vell-lpm tool")
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_PACKAGE_FILE_NAME
      ${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  # Depends comes from what the installed programs and libraries link.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  include(CPack)
endif()
