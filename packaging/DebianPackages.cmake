# Three Debian packages, one for each component of cmake/Install.cmake; scripts/package makes them.
set(TARVO_MAINTAINER "The authors of tarvo <tarvo@localhost>" CACHE STRING
    "Who answers for the packages: NAME <ADDRESS>")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tarvo)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "crash capture and crash-log resolution")
set(CPACK_PACKAGE_CONTACT ${TARVO_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL program library development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/complete_packages.cmake)

set(library libtarvo${PROJECT_VERSION_MAJOR})
set(exactly "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME tarvo)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "When a program crashes, tarvo writes down what every thread was doing.
Later it turns that report, or one from Windows or macOS, into functions,
files and lines.

This package has the program, the crash handler that it loads into other
programs, and the reader of symbols.")
# The command and the modules go by what the library is inside, too. debuginfod is asked where a server is named.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "${library} ${exactly}, libnettle8")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS libdebuginfod1)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "When a program crashes, tarvo writes down what every thread was doing.
Later it turns that report into functions, files and lines.

This package has the library for programs that start the crash handler by
themselves. The crash handler is in the package tarvo.")
# These are loaded when they are needed, so no tool sees them; without the modules nothing is captured.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libarchive13, liblzma5, zlib1g")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS tarvo)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_MULTIARCH same)
# Packages of programs that link it depend on this version or a later one.
set(control ${CMAKE_CURRENT_BINARY_DIR}/control)
file(WRITE ${control}/shlibs "libtarvo ${PROJECT_VERSION_MAJOR} ${library} (>= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarvo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "When a program crashes, tarvo writes down what every thread was doing.
Later it turns that report into functions, files and lines.

This package has what programs and modules are compiled with: headers, the
CMake package, files for pkg-config, and examples.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library} ${exactly}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS tarvo)

set(CPACK_TARVO_COPYRIGHT ${CMAKE_CURRENT_BINARY_DIR}/copyright)
set(CPACK_TARVO_CHANGES ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
include(CPack)
