# What cpack does with packages that are made, and what it must know for it.
set(CPACK_VELO_AR ${CMAKE_AR})  # where only a cross compiler is, there is no other
set(CPACK_VELO_READELF ${CMAKE_READELF})
set(CPACK_VELO_BINARY ${CMAKE_BINARY_DIR}/VeloAgent)
set(CPACK_VELO_VENDOR_LIB_DIR ${VELO_VENDOR_LIB_DIR})
include(${CMAKE_CURRENT_LIST_DIR}/linked_versions.cmake)
list(APPEND CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/sbom.cmake
  ${CMAKE_CURRENT_LIST_DIR}/recipes.cmake)
