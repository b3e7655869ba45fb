# Configuration, texts, login, requests, queries, the job queue.
file(GLOB agent_tests CONFIGURE_DEPENDS
  support/support_test.cpp
  agent/utils/[!o]*_test.cpp
  agent/curlmgr*_test.cpp agent/loginout*_test.cpp agent/status_query*_test.cpp
  z55cgi*_test.cpp)
add_unit_tests(unit_agent ${agent_tests})

# add_os_tests(<executable> <source> <wrapped function>...): the real door to the system, alone, with the wrapped
# functions that are the test's.
function(add_os_tests target source)
  add_executable(${target} ${source} $<TARGET_OBJECTS:z55_os>)
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/platform/Z55 ${CMAKE_CURRENT_SOURCE_DIR}/support)
  target_compile_definitions(${target} PRIVATE _TIME_BITS=64 _FILE_OFFSET_BITS=64)
  target_link_libraries(${target} PRIVATE velo_warnings GTest::gtest_main)
  foreach(function ${ARGN})
    target_link_options(${target} PRIVATE -Wl,--wrap=${function})
  endforeach()
  discover_unit_tests(${target})
endfunction()
set(clocks clock_gettime clock_nanosleep __clock_gettime64 __clock_nanosleep_time64)
add_os_tests(unit_os agent/utils/os_test.cpp ${clocks} sync)  # nothing reaches the host's disks
add_os_tests(unit_os_shell agent/utils/os_shell_test.cpp ${clocks} kill)
add_os_tests(unit_os_inherit agent/utils/os_inherit_test.cpp alarm)

add_test(NAME ExportedNames
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/exported_names_test.sh $<TARGET_FILE:VeloAgent> ${CMAKE_SOURCE_DIR}/platform/Z55/exports.list)
set_tests_properties(ExportedNames PROPERTIES LABELS unit)
