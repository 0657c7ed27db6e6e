# The cross build for the router: 32-bit ARM.
#
# As it is, it uses Debian's cross compiler and the foreign libraries that emulator/packages unpacks.
# Another toolchain (a router's own, with its small C library) is pointed at with
#   -DCROSS_PREFIX=/opt/toolchain/bin/arm-linux-
#   -DFOREIGN_ROOT=<where its libcjson, libnvram and libnat are, below usr or opt of which>
# See docs/porting.md.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CROSS_PREFIX arm-linux-gnueabihf- CACHE STRING "What the names of the cross tools begin with")
set(FOREIGN_ROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf/root" CACHE PATH "Root of the foreign libraries")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CROSS_PREFIX FOREIGN_ROOT)

set(CMAKE_C_COMPILER ${CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${CROSS_PREFIX}g++)
set(CMAKE_C_FLAGS_INIT -mthumb)
# An old change of the calling convention that the compiler notes at every use of a vector.
set(CMAKE_CXX_FLAGS_INIT "-mthumb -Wno-psabi")

# Programs are the workstation's, everything else is the router's.
get_filename_component(foreign_root "${FOREIGN_ROOT}" REALPATH)
set(CMAKE_FIND_ROOT_PATH "${foreign_root}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# What a foreign library needs in turn.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${foreign_root}/usr/lib/arm-linux-gnueabihf:${foreign_root}/usr/lib"
)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${foreign_root}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${foreign_root}/usr/lib/arm-linux-gnueabihf/pkgconfig:${foreign_root}/usr/lib/pkgconfig"
)
