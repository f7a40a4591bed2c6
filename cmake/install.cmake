# Install rules: headers, library, CMake package and pkg-config file. Included at top level only; the command-line host
# brings its own rule.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/hv)

install(FILES include/hv.h include/hvx.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS hv EXPORT hvTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT hvTargets NAMESPACE hv:: DESTINATION ${package_folder})

configure_package_config_file(cmake/hvConfig.cmake.in ${PROJECT_BINARY_DIR}/hvConfig.cmake
    INSTALL_DESTINATION ${package_folder} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/hvConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/hvConfig.cmake ${PROJECT_BINARY_DIR}/hvConfigVersion.cmake
    DESTINATION ${package_folder})

# The file finds its prefix from its own place, so that an installed tree can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/hv.pc.in ${PROJECT_BINARY_DIR}/hv.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/hv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
