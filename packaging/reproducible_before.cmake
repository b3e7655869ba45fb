# Run by cpack when the files of a package lie ready. Every time stamp in it is that of the version, or what the caller
# asks for; folders are open to all, whatever the umask of who packs.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_VELO_VERSION_EPOCH})
endif()
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
