# Which sources belong to which test program. One rule: the *_test.cpp of a folder are one program; in tests/system each of
# them is a program of its own. What stands apart from the rule is named where it does.

include_directories(${PROJECT_SOURCE_DIR}/tests/support)

# The tests' own code compiles in half the time unoptimised and with these headers read once. Each source still includes
# what it uses (-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON shows that it does).
set(test_code_options -O0)
set(test_code_headers <gtest/gtest.h> <algorithm> <filesystem> <fstream> <functional> <map> <string> <thread> <vector>)

# velo_test_sources(RESULT FOLDER [EXCEPT-REGEX]): the FOLDER's *_test.cpp whose names do not match.
function(velo_test_sources result folder)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp)
  if(ARGN)
    list(FILTER sources EXCLUDE REGEX "/${ARGN}$")
  endif()
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

# velo_every_source_taken([EXCEPT...]): an error for each *.cpp below this folder that no target of this folder or of one
# added by it compiles: its tests would be missing without a word. EXCEPT: files that this build leaves out on purpose.
function(velo_every_source_taken)
  file(GLOB_RECURSE left CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  list(REMOVE_ITEM left ${ARGN})
  get_property(folders DIRECTORY PROPERTY SUBDIRECTORIES)
  foreach(folder IN LISTS folders ITEMS ${CMAKE_CURRENT_SOURCE_DIR})
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
      get_target_property(sources ${target} SOURCES)
      foreach(source IN LISTS sources)
        cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${folder} NORMALIZE)
        list(REMOVE_ITEM left ${source})
      endforeach()
    endforeach()
  endforeach()
  foreach(source IN LISTS left)
    message(SEND_ERROR "${source} belongs to no program: nothing compiles it. A file of test cases is named *_test.cpp; any"
      " other is named in the CMakeLists.txt of its folder.")
  endforeach()
endfunction()
