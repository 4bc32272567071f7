# A piece is a folder with its own target, and it sees what it links and no more:
#
#     tarvo_add_piece(NAME
#       SOURCES …             beside the CMakeLists.txt that calls this
#       CRASH_SOURCES …       those of them that run in a crashed process: see CrashContext.cmake
#       HEADERS …             what others may include; without it, all headers of the folder
#       HOT                   most of the time goes by in it: -O3 in builds that are optimised
#       PUBLIC … PRIVATE …)   the pieces and libraries that it uses; PUBLIC those in its headers
#
# Headers are named by their path below TARVO_INCLUDE_ROOT, which the folder above sets. No folder of
# sources is an include path: each piece has one of its own in the build tree, with a header for each
# of its headers that does nothing but include it. A piece reaches another's headers only when it links
# that piece, so a border cannot be crossed by an include; tests/borders_test tries it.
include(${CMAKE_CURRENT_LIST_DIR}/CrashContext.cmake)

function(tarvo_add_piece name)
  cmake_parse_arguments(piece "HOT" "" "SOURCES;CRASH_SOURCES;HEADERS;PUBLIC;PRIVATE" ${ARGN})
  if(piece_SOURCES OR piece_CRASH_SOURCES)
    add_library(${name} STATIC ${piece_SOURCES} ${piece_CRASH_SOURCES})
    set(visibility PUBLIC)
    target_link_libraries(${name} PUBLIC ${piece_PUBLIC} PRIVATE ${piece_PRIVATE})
  else()
    add_library(${name} INTERFACE)
    set(visibility INTERFACE)
    target_link_libraries(${name} INTERFACE ${piece_PUBLIC})
  endif()
  if(piece_HOT)
    target_compile_options(${name} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O3>)
  endif()
  if(piece_CRASH_SOURCES AND NOT piece_SOURCES)
    target_compile_options(${name} PRIVATE ${TARVO_CRASH_CONTEXT_OPTIONS})
  else()
    tarvo_crash_context(${piece_CRASH_SOURCES})
  endif()
  set(folder ${PROJECT_BINARY_DIR}/include/${name})
  _tarvo_forward_headers(${folder} "${piece_HEADERS}")
  target_include_directories(${name} ${visibility} $<BUILD_INTERFACE:${folder}>)
endfunction()

# Writes a piece's include path.
function(_tarvo_forward_headers folder headers)
  if(NOT headers)
    file(GLOB headers RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} CONFIGURE_DEPENDS *.h)
  endif()
  file(RELATIVE_PATH prefix ${TARVO_INCLUDE_ROOT} ${CMAKE_CURRENT_SOURCE_DIR})
  file(GLOB_RECURSE stale RELATIVE ${folder} ${folder}/*.h)
  foreach(header IN LISTS headers)
    cmake_path(APPEND prefix ${header} OUTPUT_VARIABLE path)
    file(CONFIGURE OUTPUT ${folder}/${path}
         CONTENT "#pragma once\n#include \"${CMAKE_CURRENT_SOURCE_DIR}/${header}\"\n" @ONLY)
    list(REMOVE_ITEM stale ${path})
  endforeach()
  list(TRANSFORM stale PREPEND ${folder}/)
  if(stale)
    file(REMOVE ${stale})
  endif()
endfunction()
