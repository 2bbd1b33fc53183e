# What the toolchain files have in common. QLN_CROSS_MACHINE is the machine in GNU names, QLN_CROSS_DEBIAN in Debian's.
# QLN_CROSS_ROOT holds the target's packages, unpacked; scripts/cross.sh makes it.
set(QLN_CROSS_ROOT ${CMAKE_CURRENT_LIST_DIR}/../build/cross/${QLN_CROSS_DEBIAN}/root CACHE PATH "The target's packages, unpacked")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QLN_CROSS_ROOT)
get_filename_component(root ${QLN_CROSS_ROOT} REALPATH)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${QLN_CROSS_MACHINE})
set(CMAKE_C_COMPILER ${QLN_CROSS_MACHINE}-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER ${QLN_CROSS_MACHINE}-linux-gnu-g++)
set(CMAKE_SYSROOT ${root})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${QLN_CROSS_MACHINE};-L;${root})

# Programs are the host's, all else is the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${root}/usr/lib/${QLN_CROSS_MACHINE}-linux-gnu/pkgconfig:${root}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
# The quick linker is the host's own.
set(QLN_QUICK_LINKER OFF CACHE FILEPATH "")
