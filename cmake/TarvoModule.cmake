# A module: a shared library that a host loads.
#
#     tarvo_add_module(
#       NAME hello                    the target, and the file: hello.so
#       ID org.example.hello          what the host calls it, in reverse-domain form
#       NAMESPACE example::hello      of its registration functions; without it, NAME
#       SOURCES greeting.cpp …
#       REGISTER Greeting Farewell    for each, in this order, the host has
#                                     void RegisterGreeting(tarvo::Registration&) called
#       LIBRARIES …)                  what it links beside the SDK
#
# It brings what makes a library a module: the two exported objects `g_tarvo` (with the build tag that
# the host compares before it calls anything) and `g_CpuYieldDelegate`, the registration in the order
# that is stated, which static initialisers across files have not, and the export map that hides all
# the rest. The sources reach both objects through "tarvo/module.h".
#
# Installed modules belong into ${tarvo_MODULE_DIR}; others are named to the host (`tarvo --module`).
function(tarvo_add_module)
  cmake_parse_arguments(PARSE_ARGV 0 module "" "NAME;ID;NAMESPACE" "SOURCES;REGISTER;LIBRARIES")
  foreach(needed NAME ID REGISTER)
    if(NOT module_${needed})
      message(FATAL_ERROR "tarvo_add_module: ${needed} is missing")
    endif()
  endforeach()
  if(module_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "tarvo_add_module: what is \"${module_UNPARSED_ARGUMENTS}\"?")
  endif()
  if(NOT module_NAMESPACE)
    string(MAKE_C_IDENTIFIER ${module_NAME} module_NAMESPACE)
  endif()

  set(template ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/module_registration.cpp.in)
  set(exports ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/module_exports.map)
  set(registration ${CMAKE_CURRENT_BINARY_DIR}/${module_NAME}_registration.cpp)
  set(declarations "")
  set(calls "")
  foreach(source IN LISTS module_REGISTER)
    string(APPEND declarations "void Register${source}(tarvo::Registration& registration);\n")
    string(APPEND calls "  ${module_NAMESPACE}::Register${source}(registration);\n")
  endforeach()
  configure_file(${template} ${registration} @ONLY)
  # The layouts in the build tag name types by typeid.
  set_source_files_properties(${registration} PROPERTIES COMPILE_OPTIONS -frtti)

  add_library(${module_NAME} MODULE ${module_SOURCES} ${registration})
  target_compile_features(${module_NAME} PRIVATE cxx_std_20)
  target_link_libraries(${module_NAME} PRIVATE tarvo::sdk ${module_LIBRARIES})
  target_link_options(${module_NAME} PRIVATE LINKER:--version-script=${exports})
  set_target_properties(
    ${module_NAME} PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
                              LINK_DEPENDS ${exports})
endfunction()
