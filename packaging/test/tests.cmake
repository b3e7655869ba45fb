# The packages and the scripts in them, tested in device views: package.*. What the scripts do is tested natively; the
# packages of every build are looked into.
if(NOT VELO_TESTS OR VELO_SANITIZE OR NOT (VELO_DESK OR VELO_NATIVE_BUILD))
  return()
endif()
set(package_devkit ${CMAKE_BINARY_DIR}/devkit)
if(NOT VELO_DESK)
  set(package_devkit ${VELO_NATIVE_BUILD}/devkit)
endif()

function(velo_package_test name script)
  add_test(NAME package.${name} COMMAND ${package_devkit}/device/device-view --bind ${CMAKE_BINARY_DIR} --
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${script}_test.sh ${CMAKE_BINARY_DIR}/packaging/packages ${CMAKE_BINARY_DIR} ${ARGN})
  set_tests_properties(package.${name} PROPERTIES LABELS package TIMEOUT 180 FIXTURES_REQUIRED packages)
endfunction()

add_test(NAME package.made COMMAND ${CMAKE_CURRENT_LIST_DIR}/make_packages.sh ${CMAKE_BINARY_DIR})
set_tests_properties(package.made PROPERTIES LABELS package FIXTURES_SETUP packages)
velo_package_test(contents contents)
add_test(NAME package.sbom COMMAND ${CMAKE_COMMAND} -DPACKAGES=${CMAKE_BINARY_DIR}/packaging/packages -DREADELF=${CMAKE_READELF}
  -P ${CMAKE_CURRENT_LIST_DIR}/sbom_test.cmake)
set_tests_properties(package.sbom PROPERTIES LABELS package FIXTURES_REQUIRED packages)
if(NOT VELO_DESK)
  return()
endif()
velo_package_test(upgrade upgrade)
velo_package_test(systemd systemd)
velo_package_test(places places)
velo_package_test(second_agent second_agent)
velo_package_test(service service)
velo_package_test(service_busybox service busybox)
velo_package_test(agent agent)
velo_package_test(readonly readonly)
velo_package_test(check_conf check_conf)
velo_package_test(check_conf_busybox check_conf busybox)
velo_package_test(recipes recipes)
set_tests_properties(package.recipes PROPERTIES TIMEOUT 600)  # it builds the agent
velo_package_test(keep_conf keep_conf)
velo_package_test(keep_conf_busybox keep_conf busybox)
