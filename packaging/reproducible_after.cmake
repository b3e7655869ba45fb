# Run by cpack when it has made packages. An archive is in the order and with the owner of the folder that it was made from,
# and the parts of a .deb have the mode that the umask left: packed again, in the order of names, root's, by fixed modes.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(folder ${package}.unpacked)
  file(MAKE_DIRECTORY ${folder})
  if(package MATCHES "\\.tar\\.gz$")
    execute_process(COMMAND tar -xpzf ${package} -C ${folder} COMMAND_ERROR_IS_FATAL ANY)
    file(GLOB entries RELATIVE ${folder} ${folder}/*)
    execute_process(
      COMMAND tar --sort=name --owner=0 --group=0 --numeric-owner --mtime=@$ENV{SOURCE_DATE_EPOCH}
        -cf - -C ${folder} ${entries}
      COMMAND gzip -9n OUTPUT_FILE ${package} COMMAND_ERROR_IS_FATAL ANY)
  elseif(package MATCHES "\\.deb$")
    execute_process(COMMAND ${CPACK_VELO_AR} x ${package} WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY)
    file(GLOB parts RELATIVE ${folder} ${folder}/control.* ${folder}/data.*)
    file(REMOVE ${package})
    execute_process(COMMAND ${CPACK_VELO_AR} qcD ${package} debian-binary ${parts} WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(REMOVE_RECURSE ${folder})
endforeach()
