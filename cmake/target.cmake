# VELO_TARGET_ARCHITECTURE: what the compiler makes programs for, by Debian's name, or "unknown". Read from a program that
# it made: neither the machine that builds nor the names in a toolchain file say it surely.
include(elf)

if(NOT VELO_TARGET_ARCHITECTURE)
  set(program ${CMAKE_BINARY_DIR}/CMakeFiles/program)
  try_compile(made SOURCE_FROM_CONTENT program.cpp "int main() {}\n" COPY_FILE ${program})
  if(NOT made)
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} cannot make a program with the flags that it is given (see"
      " ${CMAKE_BINARY_DIR}/CMakeFiles/CMakeError.log)")
  endif()
  velo_elf_architecture(${program} architecture)
  set(VELO_TARGET_ARCHITECTURE ${architecture} CACHE INTERNAL "")
endif()
