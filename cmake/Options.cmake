# What can be chosen when the build is configured. The presets choose all of it but where they say
# otherwise; without a preset warnings are no errors, and benchmarks and fuzzers are left out.

include(CMakeDependentOption)

option(BUILD_TESTING "Where OFF, only what is installed is built, whatever the next four say" ON)
cmake_dependent_option(TARVO_BUILD_TESTS "Build the tests, and the examples that they run" ${PROJECT_IS_TOP_LEVEL}
                       BUILD_TESTING OFF)
cmake_dependent_option(TARVO_BUILD_EXAMPLES "Build the examples" ${PROJECT_IS_TOP_LEVEL} BUILD_TESTING OFF)
cmake_dependent_option(TARVO_BUILD_BENCH "Build the benchmarks" OFF BUILD_TESTING OFF)
cmake_dependent_option(TARVO_BUILD_FUZZ "Build the fuzzers, with clang-19 whatever compiler builds the rest" OFF
                       BUILD_TESTING OFF)
option(TARVO_WERROR "Take the compiler's warnings for errors" OFF)
set(TARVO_LLVM "AUTO" CACHE STRING
    "Read symbols with LLVM 19: ON, OFF, or AUTO, which does so where LLVM is there")
set_property(CACHE TARVO_LLVM PROPERTY STRINGS AUTO ON OFF)
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
set(TARVO_PRIVATE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib/tarvo)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

add_compile_options(
  # Frames of a crash are walked by unwind tables; every function gets them, handlers too.
  -fasynchronous-unwind-tables
  # Other libraries' functions are called through the table of their addresses, without a stub in between: resolving
  # is some 2 % faster, and none of them is bound for the first time in a crash.
  -fno-plt
  # Names in the binaries do not depend on where the project was checked out, and are the sources'
  # names as seen from there.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}=.)

if(TARVO_SANITIZE)
  # The checks for null and misaligned pointers at every access double the time to compile; the
  # address sanitizer finds the first, and x86-64 allows the second.
  add_compile_options(-fsanitize=${TARVO_SANITIZE} -fno-sanitize=null,alignment
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TARVO_SANITIZE})
  add_compile_definitions(TARVO_SANITIZED)
endif()

find_package(Threads REQUIRED)
