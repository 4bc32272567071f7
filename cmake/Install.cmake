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
  endif()
endfunction()
