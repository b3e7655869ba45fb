# Polling and alarms, network state, parameters, statuses, remote operations, clock.
file(GLOB model_tests CONFIGURE_DEPENDS
  agent/polling*_test.cpp agent/alarm_*_test.cpp agent/quota*_test.cpp agent/network*_test.cpp
  ak_model/[!fu]*_test.cpp
  support/marked_log.cpp)
if(model_tests)
  add_unit_tests(unit_model ${model_tests})
endif()
