# Warnings, for all targets.
add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align -Wcast-qual -Wold-style-cast -Wconversion
  -Wsign-conversion -Wformat=2 -Wmissing-declarations)
if(TARVO_WERROR)
  add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 at -O3 takes the copies inside std::string's operators + and = for overlapping, "accessing
  # 9223372036854775810 or more bytes" (its bugs 105329 and 105651).
  # It also does not follow which member of a variant is held, and finds the others "used uninitialized" when one is
  # moved (at -O3, and wherever a sanitizer's instrumentation hides the index).
  add_compile_options(-Wno-restrict -Wno-maybe-uninitialized)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # libstdc++ 12's stable_sort calls what it has itself marked as deprecated.
  add_compile_options(-Wno-deprecated-declarations)
endif()
