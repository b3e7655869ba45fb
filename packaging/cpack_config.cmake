# Read by cpack for each kind of package. In a .deb the link for BusyBox's rcS is made at the installation; a source package
# unpacks into a folder of its own.
if(CPACK_GENERATOR STREQUAL "DEB")
  list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build)
  set(CPACK_INSTALL_CMAKE_PROJECTS "${build};VeloAgent;Unspecified;/")
elseif(NOT CPACK_INSTALL_CMAKE_PROJECTS)
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
endif()
