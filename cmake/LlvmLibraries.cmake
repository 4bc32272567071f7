# Finds LLVM 19's libraries, for all who read or write debug files, and sets TARVO_HAS_LLVM.
#
# LLVM is linked statically, with what is not used left out: the shared libLLVM costs every process
# that loads it some 15 ms.
set(TARVO_HAS_LLVM FALSE)
if(TARVO_LLVM STREQUAL "OFF")
  set(reason "TARVO_LLVM is OFF")
else()
  find_package(LLVM 19.1 QUIET CONFIG HINTS /usr/lib/llvm-19/lib/cmake/llvm)
  # Unpacks compressed debug sections in a third of the time that zlib takes.
  find_library(TARVO_DEFLATE_LIBRARY deflate)
  find_path(TARVO_DEFLATE_INCLUDE libdeflate.h)
  if(NOT LLVM_FOUND OR NOT TARGET LLVMSymbolize)
    set(reason "LLVM 19 was not found (Debian: llvm-19-dev)")
  elseif(NOT TARVO_DEFLATE_LIBRARY OR NOT TARVO_DEFLATE_INCLUDE)
    set(reason "libdeflate was not found (Debian: libdeflate-dev)")
  elseif(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # LLVM 19's ScopedPrinter.h deletes a type before it is complete, an error from C++23 on.
    set(reason "Clang refuses LLVM 19's headers in C++23")
  else()
    set(TARVO_HAS_LLVM TRUE)
  endif()
endif()

if(TARVO_HAS_LLVM)
  # LLVM's static libraries name the development target of zstd, which Debian's LLVM packages do
  # not bring; the library itself is there.
  if(NOT TARGET zstd::libzstd_shared)
    find_library(TARVO_ZSTD NAMES zstd libzstd.so.1 REQUIRED)
    add_library(zstd::libzstd_shared SHARED IMPORTED GLOBAL)
    set_target_properties(zstd::libzstd_shared PROPERTIES IMPORTED_LOCATION ${TARVO_ZSTD})
  endif()
elseif(TARVO_LLVM STREQUAL "AUTO" OR TARVO_LLVM STREQUAL "OFF")
  set(without_symbols "the symbol reader is left out, and `tarvo pack` takes no ELF files: ${reason}")
  if(TARVO_LLVM STREQUAL "AUTO")
    set(without_symbols "***** NO SYMBOLS ***** ${without_symbols}")
  endif()
  # The last line that configuring prints, where it is seen.
  cmake_language(EVAL CODE "cmake_language(DEFER DIRECTORY [[${PROJECT_SOURCE_DIR}]]
                                           CALL message NOTICE [[${without_symbols}]])")
else()
  message(FATAL_ERROR "TARVO_LLVM is ${TARVO_LLVM}, but ${reason}")
endif()
