# Installation (below / by default: `DESTDIR=/scratch cmake --install build/release --strip`) and packages
# (`cpack --config build/release/CPackConfig.cmake`): a .deb, and a .tar.gz to unpack into a read-only file system.
# The vendor's libraries come with the device.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set_property(CACHE CMAKE_INSTALL_PREFIX PROPERTY VALUE /)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/install.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/documents.cmake)

if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${VELO_TARGET_ARCHITECTURE})
endif()
set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_PACKAGE_NAME veloagent)
set(CPACK_PACKAGE_VENDOR "VeloAgent developers")
set(CPACK_PACKAGE_CONTACT "VeloAgent developers <veloagent@example.org>")
set(CPACK_PACKAGE_FILE_NAME "veloagent_${PROJECT_VERSION}_${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}")
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "joins a camera's control interface and a camera cloud\n Polls the camera, raises alarms, relays commands, recordings and media.")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libcurl4 (>= 7.85), libgcc-s1, libstdc++6 (>= 12)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gawk | mawk, iputils-ping, net-tools, ntpdate | ntpsec-ntpdate")
foreach(control conffiles triggers preinst postinst prerm postrm)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/${control})
endforeach()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/cpack_config.cmake)
# The same files give the same packages, whoever makes them, where and when.
set(CPACK_VELO_VERSION_EPOCH ${VELO_VERSION_EPOCH})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/reproducible_before.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/reproducible_after.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/source_package.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/after_packing.cmake)
include(CPack)

include(${CMAKE_CURRENT_LIST_DIR}/test/tests.cmake)
