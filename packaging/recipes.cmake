# Run by cpack when it has made the source package: the recipes of packaging/yocto and packaging/buildroot beside it, with its
# version and checksum.
if(CPACK_INSTALL_CMAKE_PROJECTS)
  return()
endif()
set(PROJECT_VERSION ${CPACK_PACKAGE_VERSION})
set(source ${CMAKE_CURRENT_LIST_DIR})
set(out ${CPACK_PACKAGE_DIRECTORY})
file(SHA256 ${CPACK_PACKAGE_FILES} SOURCE_SHA256)
file(SHA256 ${source}/../LICENSE LICENSE_SHA256)
file(MD5 ${source}/../LICENSE LICENSE_MD5)

configure_file(${source}/yocto/veloagent.bb.in ${out}/yocto/veloagent_${PROJECT_VERSION}.bb @ONLY)
file(COPY ${source}/yocto/files ${source}/yocto/README.md DESTINATION ${out}/yocto)
configure_file(${source}/buildroot/veloagent.mk.in ${out}/buildroot/veloagent.mk @ONLY)
configure_file(${source}/buildroot/veloagent.hash.in ${out}/buildroot/veloagent.hash @ONLY)
file(COPY ${source}/buildroot/Config.in ${source}/buildroot/README.md DESTINATION ${out}/buildroot)
