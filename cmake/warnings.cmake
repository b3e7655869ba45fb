# One interface target that every target of ours links: the warnings. Errors they are only where somebody asks for it: a
# compiler of tomorrow knows new ones, and a packager has no use for them.
set(werror OFF)
if(DEFINED ENV{VELO_WERROR})
  set(werror $ENV{VELO_WERROR})
endif()
option(VELO_WERROR "Take warnings for errors (default: the environment's VELO_WERROR)" ${werror})

add_library(velo_warnings INTERFACE)
target_compile_options(velo_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wundef -Wvla
  $<IF:$<CXX_COMPILER_ID:GNU>,-Wcast-align=strict,-Wcast-align>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>  # tells of ABI changes on ARM before GCC 7: no such library is linked
  -Wnon-virtual-dtor -Woverloaded-virtual
  $<$<BOOL:${VELO_WERROR}>:-Werror>)
