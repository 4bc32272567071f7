# Where `cmake --install` puts what is built, in three components:
#
#     program      the program `tarvo`, what it loads, the modules, and what belongs to them
#     library      the host library, for programs that were linked with it
#     development  the SDK, the CMake package, files for pkg-config, and examples
#
# Only libtarvo.so is for everybody and lies among the system's libraries; what is found by its place lies in
# TARVO_PRIVATE_INSTALL_DIR, modules below it. Targets have their rules beside them.
set(TARVO_PRIVATE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/tarvo)
set(TARVO_MODULE_INSTALL_DIR ${TARVO_PRIVATE_INSTALL_DIR}/modules)

# Has a target, once it is installed in this folder, look for the host library where that is installed,
# wherever the whole is moved to. Where the loader looks anyway it gets no run path: distributions refuse those.
function(tarvo_find_host_library target folder)
  cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${folder} OUTPUT_VARIABLE way)
  if(NOT CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${way}")
    # In the build tree the way is mostly the same. One that is replaced when it is installed ends in a colon
    # until then: the loader takes that for the folder that the user is in, and looks for libraries there.
    cmake_path(RELATIVE_PATH folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
    cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY ${PROJECT_BINARY_DIR} OUTPUT_VARIABLE built)
    cmake_path(RELATIVE_PATH CMAKE_LIBRARY_OUTPUT_DIRECTORY BASE_DIRECTORY ${built} OUTPUT_VARIABLE built_way)
    if(built_way STREQUAL way)
      set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
    endif()
  endif()
endfunction()
