# The device: 32-bit big-endian PowerPC, with Debian's cross compiler. Its programs run here under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_CXX_STANDARD_LIBRARIES -latomic)  # for 64-bit atomics, protobuf's among them
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc -L /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_LIBDIR} /usr/powerpc-linux-gnu/lib/pkgconfig)

# What Debian has no device packages of: header-only libraries come from this machine's packages, the others are built
# from their sources. scripts/test-device prepares VEXA_DEVICE_CACHE.
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR}/device)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VEXA_DEVICE_CACHE)
set(Boost_INCLUDE_DIR ${VEXA_DEVICE_CACHE}/include)
set(Protobuf_INCLUDE_DIR ${VEXA_DEVICE_CACHE}/protobuf/src)
set(Protobuf_LIBRARY ${VEXA_DEVICE_CACHE}/protobuf-build/libprotobuf-lite.a)
set(Protobuf_LITE_LIBRARY ${Protobuf_LIBRARY})
find_program(Protobuf_PROTOC_EXECUTABLE protoc)
