# A Linux other than this machine's; the presets armhf (the camera: 32-bit ARM, hard float) and arm64 say which.
#   VELO_CROSS    prefix of GCC's programs: the target's triple, with a folder before it where PATH does not lead there
#   VELO_SYSROOT  the target's headers and libraries
# Another compiler for the same target is named by -DCMAKE_CXX_COMPILER: arm-linux-gnueabihf-g++-13, or clang++-19, which
# takes GCC's own libraries for the target from below /usr.
set(CMAKE_SYSTEM_NAME Linux)
cmake_path(GET VELO_CROSS FILENAME triple)
string(REGEX REPLACE "-$" "" triple "${triple}")
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${triple}")
if(NOT CMAKE_CXX_COMPILER)
  set(CMAKE_CXX_COMPILER ${VELO_CROSS}g++)
endif()
set(CMAKE_CXX_COMPILER_TARGET ${triple})  # a compiler of GCC's has one target and needs no telling
set(CMAKE_CXX_COMPILER_EXTERNAL_TOOLCHAIN /usr)
set(CMAKE_SYSROOT ${VELO_SYSROOT})
string(REGEX REPLACE "^arm.*" "arm" emulated "${CMAKE_SYSTEM_PROCESSOR}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${emulated} -L ${VELO_SYSROOT})
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELO_CROSS VELO_SYSROOT)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
