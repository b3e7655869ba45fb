# Read by cpack for each kind of package. In a .deb the link for BusyBox's rcS is made at the installation.
if(CPACK_GENERATOR STREQUAL "DEB")
  list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build)
  set(CPACK_INSTALL_CMAKE_PROJECTS "${build};VeloAgent;Unspecified;/")
endif()
