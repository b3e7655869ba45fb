# What the parts that are switched on need of this machine (of the sysroot, in a cross build): looked for here alone, so
# that all that is missing is told at once and by its name, before a compiler stumbles over it.
set(velo_missing "")
macro(velo_need found what)
  if(NOT ${found})
    string(APPEND velo_missing "\n  ${what}")
  endif()
endmacro()

find_package(Threads REQUIRED)
find_package(CURL 7.85)
velo_need(CURL_FOUND "libcurl 7.85 or newer with its headers (Debian: libcurl4-openssl-dev): the agent's HTTP")

if(NOT VELO_VENDOR_LIB_DIR)
  find_package(nlohmann_json QUIET)
  velo_need(nlohmann_json_FOUND "nlohmann-json (Debian: nlohmann-json3-dev): the stand-ins for the vendor's libraries and the desk;\
 not needed with -DVELO_VENDOR_LIB_DIR=... -DVELO_DESK=OFF")
endif()
if(VELO_TESTS)
  find_package(GTest QUIET)
  velo_need(GTest_FOUND "GoogleTest (Debian: libgtest-dev): the tests; not needed with -DVELO_TESTS=OFF")
endif()
if(VELO_DESK)
  find_package(PkgConfig QUIET)
  velo_need(PkgConfig_FOUND "pkg-config (Debian: pkg-config): finds the desk's libraries; not needed with -DVELO_DESK=OFF")
  if(PkgConfig_FOUND)
    # libcrypto: headers of 0.18 call it themselves; it comes with libcpp-httplib-dev.
    pkg_check_modules(HTTPLIB QUIET IMPORTED_TARGET cpp-httplib libcrypto)
    pkg_check_modules(DESK_FFMPEG QUIET IMPORTED_TARGET libavcodec libavutil)
  endif()
  velo_need(HTTPLIB_FOUND "cpp-httplib (Debian: libcpp-httplib-dev): the desk's HTTP; not needed with -DVELO_DESK=OFF")
  if(NOT DESK_FFMPEG_FOUND)
    message(STATUS "FFmpeg (Debian: libavcodec-dev, libavutil-dev) is not there: frames on the desk stay synthetic")
  endif()
endif()

if(velo_missing)
  message(FATAL_ERROR "Missing:${velo_missing}")
endif()
