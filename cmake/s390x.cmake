# Toolchain: s390x, which is big-endian, with Debian's cross compiler, its packages in a folder, its programs run by
# qemu-s390x.
set(QLN_CROSS_MACHINE s390x)
set(QLN_CROSS_DEBIAN s390x)
include(${CMAKE_CURRENT_LIST_DIR}/CrossToolchain.cmake)
