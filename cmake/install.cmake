# What is installed, by component: runtime (what programs need), development (what building them needs), daemon, tools.
include(CMakePackageConfigHelpers)

# Programs find the library from wherever both are installed to.
set(programs mainstay vexactl)
set(folders ${CMAKE_INSTALL_FULL_SBINDIR} ${CMAKE_INSTALL_FULL_BINDIR})
foreach(program folder IN ZIP_LISTS programs folders)
  file(RELATIVE_PATH way ${folder} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(${program} PROPERTIES INSTALL_RPATH $ORIGIN/${way})
endforeach()

install(TARGETS vexaconfig EXPORT VexaConfigTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(EXPORT VexaConfigTargets NAMESPACE vexa:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VexaConfig
        COMPONENT development)

configure_package_config_file(cmake/VexaConfigConfig.cmake.in VexaConfigConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VexaConfig)
write_basic_package_version_file(VexaConfigConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VexaConfigConfig.cmake ${PROJECT_BINARY_DIR}/VexaConfigConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VexaConfig COMPONENT development)

# Relative, so that the file holds wherever the tree is installed to.
file(RELATIVE_PATH VEXA_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vexaconfig.pc.in vexaconfig.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vexaconfig.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# Where Wireshark looks for plug-ins of every version.
install(FILES wireshark/vexa.lua wireshark/vexa_names.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins
        COMPONENT development)
