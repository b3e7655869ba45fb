# CPACK_VELO_VERSIONS, for the bill of materials: what the libraries that the compiler brings were at the build, as
# name=version. Read from a program that it made, as it makes the agent.
if(NOT VELO_LINKED_VERSIONS)
  set(program ${CMAKE_BINARY_DIR}/CMakeFiles/linked_versions)
  try_compile(made SOURCE_FROM_CONTENT linked_versions.cpp [[
#include <cstdlib>
#define TEXT_OF(number) #number
#define TEXT(number) TEXT_OF(number)
#ifdef __GLIBC__
#define GLIBC "linked:glibc=" TEXT(__GLIBC__) "." TEXT(__GLIBC_MINOR__) "\n"
#else
#define GLIBC ""
#endif
#ifdef _LIBCPP_VERSION
#define LIBRARY "linked:llvm=" TEXT(_LIBCPP_VERSION) "\n"
#elif defined __clang__
#define LIBRARY "linked:gcc=" TEXT(_GLIBCXX_RELEASE) "\n"
#else
#define LIBRARY "linked:gcc=" __VERSION__ "\n"
#endif
volatile const char text[] = "\n" GLIBC LIBRARY;
int main(int count, char **) { return text[count]; }
]] COPY_FILE ${program})
  if(made)
    file(STRINGS ${program} versions REGEX "^linked:")
    # "12.2.0 20220819 (...)", as compilers call themselves: the number.
    list(TRANSFORM versions REPLACE "^linked:([a-z]+=[0-9.]+).*" "\\1")
    set(VELO_LINKED_VERSIONS "${versions}" CACHE INTERNAL "")
  endif()
endif()
set(CPACK_VELO_VERSIONS "curl=${CURL_VERSION_STRING}" ${VELO_LINKED_VERSIONS})
