# The Debian packages libkelvik1, libkelvik-dev and kelvik-tools: cpack -G DEB in the build folder. In a
# tree configured with -DCMAKE_INSTALL_PREFIX=/usr the libraries stand in the architecture's folder.

set(KELVIK_MAINTAINER "Kelvik developers <kelvik@example.org>" CACHE STRING
    "Maintainer named by the Debian packages, as 'Name <address>'")
set(KELVIK_DEBIAN_RELEASE 1 CACHE STRING "Debian revision of the packages")
mark_as_advanced(KELVIK_MAINTAINER KELVIK_DEBIAN_RELEASE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelvik)
set(CPACK_PACKAGE_VENDOR "The Kelvik developers")
set(CPACK_PACKAGE_CONTACT "${KELVIK_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/finish-debian.cmake)
set(CPACK_KELVIK_SOURCE ${PROJECT_SOURCE_DIR})

# For another machine, whose libraries dpkg-shlibdeps does not know, and whose architecture CPack would
# not look for.
set(shlibdeps ON)
set(named "")
if(CMAKE_CROSSCOMPILING AND CMAKE_LIBRARY_ARCHITECTURE)
  execute_process(
    COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
    ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(shlibdeps OFF)
  set(named ", libc6, libgcc-s1, libstdc++6")
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KELVIK_DEBIAN_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SOURCE kelvik)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(version ${PROJECT_VERSION}-${KELVIK_DEBIAN_RELEASE})

# What follows the one line that all packages share, the project's own.
set(about
    "Kelvik gives each record of a program a level, a module and a title, and
sends it to the terminal, to the system log and to a ring of log files of
bounded size. Levels, outputs and limits are changed in the running process.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkelvik${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ${shlibdeps})
string(REGEX REPLACE "^, " "" CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${named}")
file(WRITE ${PROJECT_BINARY_DIR}/installed/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/installed/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${about}
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkelvik-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libkelvik${PROJECT_VERSION_MAJOR} (= ${version}), libc6-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "cmake, pkg-config")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${about}
.
This package holds the C99 and C++17 headers, the static library, the files
for CMake and pkg-config, the manual page and examples.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kelvik-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ${shlibdeps})
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "libkelvik${PROJECT_VERSION_MAJOR} (= ${version})${named}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${about}
.
This package holds kelviklog, a pipe into the library, and kelvikctl, which
shows and changes the logging of running programs.")

include(CPack)
