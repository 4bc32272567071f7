# Where `cmake --install` puts the SDK and the host library with their package config. Programs and
# modules have their rules beside their targets.
include(CMakePackageConfigHelpers)

set(tarvo_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarvo)

install(TARGETS tarvo_sdk tarvo_host EXPORT tarvoTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tarvo/include/tarvo
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT tarvoTargets NAMESPACE tarvo:: DESTINATION ${tarvo_package_dir})

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
        DESTINATION ${tarvo_package_dir})
