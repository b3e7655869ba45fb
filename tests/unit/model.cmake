# Polling and alarms, network state, parameters, statuses, remote operations, clock.
file(GLOB model_tests CONFIGURE_DEPENDS
  agent/polling*_test.cpp agent/alarm_*_test.cpp agent/quota*_test.cpp agent/network*_test.cpp
  ak_model/[!fu]*_test.cpp
  support/marked_log.cpp support/storage_service.cpp)
if(model_tests)
  add_unit_tests(unit_model ${model_tests})
  # The fake storage service stands between the agent's transfers and libcurl.
  target_link_options(unit_model PRIVATE -Wl,--wrap=curl_easy_perform)
endif()
