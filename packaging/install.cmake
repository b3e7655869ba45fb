# What is installed, below CMAKE_INSTALL_PREFIX, which is /. No configuration: it is made from the sample, at the
# package's installation or at the first start, and never replaced.
install(TARGETS VeloAgent RUNTIME DESTINATION usr/bin)
install(CODE [[file(RPATH_REMOVE FILE "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/usr/bin/VeloAgent")]])
install(PROGRAMS packaging/veloagent-check-conf DESTINATION usr/sbin)
install(PROGRAMS packaging/S90veloagent packaging/keep-conf DESTINATION usr/lib/veloagent)
install(FILES packaging/veloagent.service DESTINATION usr/lib/systemd/system)
install(FILES packaging/VeloAgent.conf.sample DESTINATION usr/share/veloagent)
install(DIRECTORY DESTINATION etc/veloagent)
# The script twice in /etc/init.d: as BusyBox's rcS looks for it, a link; and as update-rc.d wants it.
set(link ${CMAKE_BINARY_DIR}/packaging/S90veloagent)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging)
file(CREATE_LINK /usr/lib/veloagent/S90veloagent ${link} SYMBOLIC)
install(FILES ${link} DESTINATION etc/init.d COMPONENT rcS)
install(PROGRAMS packaging/debian/init.d RENAME veloagent DESTINATION etc/init.d)

file(GLOB documents CONFIGURE_DEPENDS docs/*.md)
install(FILES README.md SECURITY.md ${documents} DESTINATION usr/share/doc/veloagent)
install(FILES CHANGELOG.md DESTINATION usr/share/doc/veloagent OPTIONAL)
