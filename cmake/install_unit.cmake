# Runs at installation: writes the unit of the daemon, SOURCE with its path below the prefix.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX OUTPUT_VARIABLE prefix)
cmake_path(ABSOLUTE_PATH sbindir BASE_DIRECTORY ${prefix})
set(MAINSTAY ${sbindir}/mainstay)
set(unit ${prefix}/lib/systemd/system/mainstay.service)
configure_file(${source} $ENV{DESTDIR}${unit} @ONLY)
message(STATUS "Installing: $ENV{DESTDIR}${unit}")
list(APPEND CMAKE_INSTALL_MANIFEST_FILES ${unit})
