# Manual pages and what Debian wants beside a package, made with the project's version and compressed.
find_program(VELO_GZIP gzip REQUIRED)
set(documents ${CMAKE_BINARY_DIR}/packaging)

function(compressed_document input output)
  configure_file(${input} ${documents}/${output} @ONLY)
  execute_process(COMMAND ${VELO_GZIP} -9nf ${documents}/${output} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The changelog's date is the version's.
set(ENV{SOURCE_DATE_EPOCH} ${VELO_VERSION_EPOCH})
string(TIMESTAMP VELO_VERSION_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
unset(ENV{SOURCE_DATE_EPOCH})

compressed_document(packaging/man/VeloAgent.8.in VeloAgent.8)
compressed_document(packaging/man/veloagent-check-conf.8.in veloagent-check-conf.8)
compressed_document(packaging/man/VeloAgent.conf.5.in VeloAgent.conf.5)
compressed_document(packaging/debian/changelog.in changelog)
install(FILES ${documents}/VeloAgent.8.gz ${documents}/veloagent-check-conf.8.gz DESTINATION usr/share/man/man8)
install(FILES ${documents}/VeloAgent.conf.5.gz DESTINATION usr/share/man/man5)
install(FILES packaging/debian/copyright ${documents}/changelog.gz DESTINATION usr/share/doc/veloagent)
