# VELO_SANITIZE: a -fsanitize= list ("address,undefined" or "thread"); empty for none.
set(VELO_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
if(VELO_SANITIZE)
  # -g1: a report needs names and lines, no more, and the compiler is done in two thirds of the time. Instrumented code
  # makes its analysis see uninitialised variables where there are none.
  add_compile_options(-fsanitize=${VELO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  add_link_options(-fsanitize=${VELO_SANITIZE})
endif()
