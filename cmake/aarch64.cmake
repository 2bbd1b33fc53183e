# Toolchain: arm64 with Debian's cross compiler, its packages in a folder, its programs run by qemu-aarch64.
set(QLN_CROSS_MACHINE aarch64)
set(QLN_CROSS_DEBIAN arm64)
include(${CMAKE_CURRENT_LIST_DIR}/CrossToolchain.cmake)
