# From the distribution's sources.
add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL)
set(GTest_FOUND TRUE)
