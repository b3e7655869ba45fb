# Installation (below / by default: `DESTDIR=/scratch cmake --install build/release --strip`) and packages
# (`cpack --config build/release/CPackConfig.cmake`): a .deb, and a .tar.gz to unpack into a read-only file system.
# The vendor's libraries come with the device.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set_property(CACHE CMAKE_INSTALL_PREFIX PROPERTY VALUE /)
endif()

install(TARGETS VeloAgent RUNTIME DESTINATION usr/bin)
install(FILES packaging/VeloAgent.conf.sample DESTINATION etc/veloagent RENAME VeloAgent.conf
  PERMISSIONS OWNER_READ OWNER_WRITE)  # it holds a password
install(PROGRAMS packaging/S90veloagent DESTINATION etc/init.d)
install(FILES packaging/veloagent.service DESTINATION usr/lib/systemd/system)
install(FILES README.md docs/INTEGRATION.md docs/FOOTPRINT.md packaging/VeloAgent.conf.sample
  DESTINATION usr/share/doc/veloagent)

if(CMAKE_LIBRARY_ARCHITECTURE MATCHES "^arm-linux-gnueabihf")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
else()
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_PACKAGE_NAME veloagent)
set(CPACK_PACKAGE_VENDOR "VeloAgent developers")
set(CPACK_PACKAGE_CONTACT "VeloAgent developers <veloagent@localhost>")
set(CPACK_PACKAGE_FILE_NAME "veloagent_${PROJECT_VERSION}_${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}")
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "joins a camera's control interface and a camera cloud\n Polls the camera, raises alarms, relays commands, recordings and media.")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libcurl4 (>= 7.85), libgcc-s1, libstdc++6 (>= 12)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gawk | mawk, iputils-ping, net-tools, ntpdate | ntpsec-ntpdate")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/conffiles ${CMAKE_CURRENT_LIST_DIR}/prerm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

if(VELO_TESTS AND NOT VELO_SANITIZE AND (VELO_DESK OR VELO_NATIVE_BUILD))
  set(devkit_build ${CMAKE_BINARY_DIR})
  if(NOT VELO_DESK)
    set(devkit_build ${VELO_NATIVE_BUILD})
  endif()
  add_test(NAME package COMMAND ${devkit_build}/devkit/device/device-view --bind ${CMAKE_BINARY_DIR} --
    ${CMAKE_CURRENT_LIST_DIR}/test/package_test.sh ${CMAKE_BINARY_DIR} ${devkit_build}/devkit)
  set_tests_properties(package PROPERTIES LABELS package TIMEOUT 120)
endif()
