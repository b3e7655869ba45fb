# Configuration, texts, login, requests, queries, the job queue.
file(GLOB agent_tests CONFIGURE_DEPENDS
  support/support_test.cpp
  agent/utils/[!o]*_test.cpp
  agent/curlmgr*_test.cpp agent/loginout*_test.cpp agent/status_query*_test.cpp
  z55cgi*_test.cpp)
add_unit_tests(unit_agent ${agent_tests})

# The real door to the system, alone: its clocks are the test's, and nothing reaches the host's disks.
add_executable(unit_os agent/utils/os_test.cpp $<TARGET_OBJECTS:z55_os>)
target_include_directories(unit_os PRIVATE ${CMAKE_SOURCE_DIR}/platform/Z55)
target_compile_definitions(unit_os PRIVATE _TIME_BITS=64 _FILE_OFFSET_BITS=64)
target_link_libraries(unit_os PRIVATE velo_warnings GTest::gtest_main)
foreach(function clock_gettime clock_nanosleep __clock_gettime64 __clock_nanosleep_time64 posix_spawn pipe2 sync)
  target_link_options(unit_os PRIVATE -Wl,--wrap=${function})
endforeach()
discover_unit_tests(unit_os)

add_test(NAME ExportedNames
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/exported_names_test.sh $<TARGET_FILE:VeloAgent> ${CMAKE_SOURCE_DIR}/platform/Z55/exports.list)
set_tests_properties(ExportedNames PROPERTIES LABELS unit)
