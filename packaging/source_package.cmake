# A source package, for those who build by a recipe (packaging/yocto, packaging/buildroot):
# `cpack -G TGZ --config build/release/CPackSourceConfig.cmake`. Make it from a clean checkout: it holds all that lies there
# but builds.
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME veloagent-${PROJECT_VERSION})
set(CPACK_SOURCE_IGNORE_FILES "^${CMAKE_SOURCE_DIR}/build/" "^${CMAKE_SOURCE_DIR}/\\\\.git/" "/CMakeUserPresets\\\\.json$" "~$" "\\\\.swp$")
