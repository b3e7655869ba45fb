# The camera: 32-bit ARM, hard float. VELO_CROSS and VELO_SYSROOT come from the preset (docs/INTEGRATION.md).
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-cross.cmake)
