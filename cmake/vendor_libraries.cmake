# The vendor's own libraries, from VELO_VENDOR_LIB_DIR.
if(VELO_DESK OR VELO_TESTS)
  message(FATAL_ERROR "VELO_VENDOR_LIB_DIR is for the device: desk and tests stand on stand-ins for these libraries."
    " Add -DVELO_DESK=OFF -DVELO_TESTS=OFF")
endif()

set(wrong "")
foreach(name vq_ipca ef usock)
  set(file ${VELO_VENDOR_LIB_DIR}/lib${name}.so)
  if(NOT EXISTS ${file})
    string(APPEND wrong "\n  ${file} is not there")
    continue()
  endif()
  velo_elf_architecture(${file} architecture)
  if(NOT architecture STREQUAL VELO_TARGET_ARCHITECTURE)
    string(APPEND wrong "\n  ${file} is no library for ${VELO_TARGET_ARCHITECTURE}, which ${CMAKE_CXX_COMPILER} builds for"
      " (the library: ${architecture})")
  endif()
  # By -L and -l: then the agent asks for it by name alone, whether the maker gave it a soname or not.
  add_library(${name} SHARED IMPORTED)
  set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${file} IMPORTED_NO_SONAME ON)
endforeach()
if(wrong)
  message(FATAL_ERROR "VELO_VENDOR_LIB_DIR must hold libvq_ipca.so, libef.so and libusock.so:${wrong}")
endif()
