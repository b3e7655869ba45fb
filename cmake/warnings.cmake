# One interface target that every target of ours links: the warnings, all of them errors.
add_library(velo_warnings INTERFACE)
target_compile_options(velo_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wcast-align=strict -Wundef -Wvla
  -Wno-psabi  # tells of ABI changes on ARM before GCC 7: no such library is linked
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual> -Werror)
