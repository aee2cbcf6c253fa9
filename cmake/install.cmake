# Installation: headers, both libraries, and what pkg-config and find_package need to find them; vosctl's completions, and the dissector.
include(CMakePackageConfigHelpers)

install(TARGETS vos vos_static EXPORT vosTargets)
install(FILES ${vos_headers} ${vos_cpp_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vos)

# The prefix is computed from the path of vos.pc, so that an installation can be moved.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vos.pc.in vos.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vos.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT vosTargets NAMESPACE vos:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vos)
configure_package_config_file(cmake/vosConfig.cmake.in vosConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vos)
write_basic_package_version_file(vosConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vosConfig.cmake ${PROJECT_BINARY_DIR}/vosConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vos)

# Completions. For the prefix /usr, zsh reads another directory than for other prefixes. The prefix is known only at
# the installation (cmake --install --prefix), so the directory is chosen then.
if(VOS_BUILD_TOOLS)
  set(completion ${PROJECT_SOURCE_DIR}/tools/vosctl/completion)
  install(FILES ${completion}/vosctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME vosctl)
  install(FILES ${completion}/vosctl.fish DESTINATION ${VOS_FISH_COMPLETIONS})
  # Below /usr this is where Wireshark looks for plugins.
  install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/vos.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins)
  install(CODE "
    set(zsh \"${VOS_ZSH_COMPLETIONS}\")
    if(NOT zsh AND CMAKE_INSTALL_PREFIX MATCHES \"^/usr/?$\")
      set(zsh ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
    elseif(NOT zsh)
      set(zsh ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    endif()
    cmake_path(ABSOLUTE_PATH zsh BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    file(INSTALL \"${completion}/vosctl.zsh\" DESTINATION \"\${zsh}\" RENAME _vosctl)")
endif()

# cmake --build build --target uninstall
add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -D MANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt
                                    -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake VERBATIM)
