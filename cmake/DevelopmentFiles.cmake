# What programs and modules are built with: the SDK's headers, the CMake package, files for pkg-config, and the
# sources of the documented examples.
include(CMakePackageConfigHelpers)

set(tarvo_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarvo)

install(TARGETS tarvo_sdk tarvo_host EXPORT tarvoTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tarvo/include/tarvo
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
install(EXPORT tarvoTargets NAMESPACE tarvo:: DESTINATION ${tarvo_package_dir} COMPONENT development)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/tarvoConfig.cmake.in ${PROJECT_BINARY_DIR}/tarvoConfig.cmake
  INSTALL_DESTINATION ${tarvo_package_dir}
  PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/tarvoConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarvoConfig.cmake ${PROJECT_BINARY_DIR}/tarvoConfigVersion.cmake
        ${PROJECT_SOURCE_DIR}/cmake/TarvoModule.cmake
        ${PROJECT_SOURCE_DIR}/cmake/module_exports.map
        ${PROJECT_SOURCE_DIR}/cmake/module_registration.cpp.in
        DESTINATION ${tarvo_package_dir} COMPONENT development)

# The way from a pkg-config file to the prefix: the installed tree may be moved.
cmake_path(APPEND CMAKE_INSTALL_FULL_LIBDIR pkgconfig OUTPUT_VARIABLE folder)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${folder} OUTPUT_VARIABLE way_to_prefix)
foreach(kind LIBDIR INCLUDEDIR)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_${kind} BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE ${kind})
endforeach()
foreach(file tarvo.pc tarvo-report.pc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${file}.in ${PROJECT_BINARY_DIR}/${file} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${file} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/callbacks ${PROJECT_SOURCE_DIR}/examples/embedding
                  ${PROJECT_SOURCE_DIR}/examples/module ${PROJECT_SOURCE_DIR}/examples/resolving
                  ${PROJECT_SOURCE_DIR}/examples/viewer
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
