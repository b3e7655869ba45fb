# Configuration, texts, login, requests, queries, the job queue.
file(GLOB agent_tests CONFIGURE_DEPENDS
  support/support_test.cpp
  agent/utils/[!o]*_test.cpp
  agent/curlmgr*_test.cpp agent/loginout*_test.cpp agent/status_query*_test.cpp
  z55cgi*_test.cpp)
add_unit_tests(unit_agent ${agent_tests})
