# Unit tests of one piece: `tarvo_add_test(NAME name SOURCES … LIBRARIES …)`. Folders with tests are
# added where TARVO_BUILD_TESTS is on.
if(TARVO_BUILD_TESTS)
  enable_testing()
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

function(tarvo_add_test)
  cmake_parse_arguments(test "" "NAME;TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT test_TIMEOUT)
    set(test_TIMEOUT 60)
  endif()
  add_executable(${test_NAME} ${test_SOURCES})
  set_target_properties(${test_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests
                                                UNITY_BUILD OFF)
  target_link_libraries(${test_NAME} PRIVATE ${test_LIBRARIES} test_support GTest::gtest_main)
  if(TARVO_SANITIZE MATCHES "thread")
    set(test_environment
        ENVIRONMENT "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/thread_sanitizer.supp")
  endif()
  gtest_discover_tests(${test_NAME} PROPERTIES TIMEOUT ${test_TIMEOUT} ${test_environment}
                       DISCOVERY_TIMEOUT 60)
endfunction()
