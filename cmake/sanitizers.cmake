# VELO_SANITIZE: a -fsanitize= list ("address,undefined" or "thread"); empty for none.
set(VELO_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
if(VELO_SANITIZE)
  add_compile_options(-fsanitize=${VELO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELO_SANITIZE})
endif()
