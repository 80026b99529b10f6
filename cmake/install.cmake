# What `cmake --install` gives: libraries, headers, wlanctl, a CMake package, pkg-config files, examples.
include(CMakePackageConfigHelpers)
install(TARGETS kvt zarn_wlan EXPORT zarn_wlan-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
set_target_properties(wlanctl PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
set_target_properties(kvt zarn_wlan PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS wlanctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/kvt ${ZARN_GENERATED}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(FILES examples/campus.xml examples/first.c DESTINATION ${CMAKE_INSTALL_DATADIR}/zarn_wlan/examples)
install(FILES ${ZARN_GENERATED}/share/zarn_wlan.xsd DESTINATION ${CMAKE_INSTALL_DATADIR}/zarn_wlan)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zarn_wlan)
install(EXPORT zarn_wlan-targets NAMESPACE zarn_wlan:: DESTINATION ${package_dir})
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/zarn_wlan-config.cmake
     CONTENT "include(\"\${CMAKE_CURRENT_LIST_DIR}/zarn_wlan-targets.cmake\")\n" @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zarn_wlan-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zarn_wlan-config.cmake ${PROJECT_BINARY_DIR}/zarn_wlan-config-version.cmake
        DESTINATION ${package_dir})
file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(library kvt zarn_wlan)
  if(library STREQUAL "kvt")
    set(about "The object runtime")
    set(needs "")
  else()
    set(about "WLAN profiles as objects and tables")
    set(needs "kvt")
  endif()
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/${library}.pc CONTENT [[prefix=${pcfiledir}/@up@
Name: @library@
Description: @about@
Version: @PROJECT_VERSION@
Requires: @needs@
Libs: -L${prefix}/@CMAKE_INSTALL_LIBDIR@ -l@library@
Cflags: -I${prefix}/@CMAKE_INSTALL_INCLUDEDIR@
]] @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
