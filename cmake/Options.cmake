# Settings that every target shares.

set(TARVO_SANITIZE "" CACHE STRING
    "Sanitizers to build with, as for -fsanitize= (address,undefined or thread)")

set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Programs find the host library and the modules relative to themselves, in the build tree as well
# as where they are installed.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/pieces)
set(TARVO_MODULE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/modules)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align -Werror
  # Frames of a crash are walked by unwind tables; every function gets them, handlers too.
  -fasynchronous-unwind-tables
  # Names in the binaries do not depend on where the project was checked out, and are the sources'
  # names as seen from there.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}=.)

if(TARVO_SANITIZE)
  # The instrumentation hides from GCC that a variant's other members are not read. The checks for
  # null and misaligned pointers at every access double the time to compile; the address sanitizer
  # finds the first, and x86-64 allows the second.
  add_compile_options(-fsanitize=${TARVO_SANITIZE} -fno-sanitize=null,alignment
                      -fno-omit-frame-pointer -Wno-maybe-uninitialized)
  add_link_options(-fsanitize=${TARVO_SANITIZE})
  add_compile_definitions(TARVO_SANITIZED)
endif()

find_package(Threads REQUIRED)
if(BUILD_TESTING)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

# Unit tests of one piece: `tarvo_add_test(NAME name SOURCES … LIBRARIES …)`.
function(tarvo_add_test)
  cmake_parse_arguments(test "" "NAME;TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT BUILD_TESTING)
    return()
  endif()
  if(NOT test_TIMEOUT)
    set(test_TIMEOUT 60)
  endif()
  add_executable(${test_NAME} ${test_SOURCES})
  set_target_properties(${test_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
  target_link_libraries(${test_NAME} PRIVATE ${test_LIBRARIES} test_support GTest::gtest_main)
  if(TARVO_SANITIZE MATCHES "thread")
    set(test_environment
        ENVIRONMENT "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/thread_sanitizer.supp")
  endif()
  gtest_discover_tests(${test_NAME} PROPERTIES TIMEOUT ${test_TIMEOUT} ${test_environment}
                       DISCOVERY_TIMEOUT 60)
endfunction()
