include(CMakePackageConfigHelpers)

install(TARGETS vexaconfig EXPORT VexaConfigTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY classes/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vexaconfig
        FILES_MATCHING PATTERN "*.h" PATTERN "*.inc" PATTERN "*.proto")
install(FILES ${VEXA_GENERATED}/messages/alarm.pb.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vexaconfig/messages)
install(EXPORT VexaConfigTargets NAMESPACE vexa:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VexaConfig)

configure_package_config_file(cmake/VexaConfigConfig.cmake.in VexaConfigConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VexaConfig)
write_basic_package_version_file(VexaConfigConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VexaConfigConfig.cmake ${PROJECT_BINARY_DIR}/VexaConfigConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VexaConfig)

# Relative, so that the file holds wherever the tree is installed to.
file(RELATIVE_PATH VEXA_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vexaconfig.pc.in vexaconfig.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vexaconfig.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
