# Recording, firmware upgrade, frames, snapshot, talk-back.
file(GLOB media_tests CONFIGURE_DEPENDS
  *recording*_test.cpp
  ak_model/firmware_upgrade*_test.cpp ak_model/upgrade_*_test.cpp
  frame/*_test.cpp)
if(media_tests)
  add_unit_tests(unit_media ${media_tests} support/camera_script.cpp support/marked_log.cpp support/instants.cpp)
  foreach(function puts printf pthread_cond_wait)
    target_link_options(unit_media PRIVATE -Wl,--wrap=${function})  # support/instants.h
  endforeach()
endif()
