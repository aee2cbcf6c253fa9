# Installation: headers, both libraries, and what pkg-config and find_package need to find them.
include(CMakePackageConfigHelpers)

install(TARGETS vos vos_static EXPORT vosTargets)
install(FILES ${vos_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vos)

# The prefix is found from where vos.pc lies, so that an installation can be moved.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vos.pc.in vos.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vos.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT vosTargets NAMESPACE vos:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vos)
configure_package_config_file(cmake/vosConfig.cmake.in vosConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vos)
write_basic_package_version_file(vosConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vosConfig.cmake ${PROJECT_BINARY_DIR}/vosConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vos)
