# What cmake --install puts where, the CMake package and kelvik.pc in the installed and the build tree,
# and the Debian packages of CPack. To be included after the libraries and before the tools.
#
# Components: runtime (the shared library), development (headers, static library, CMake package, pkg-config
# file, kelvik(3), examples), tools (programs, their man pages and completion).

option(KELVIK_INSTALL "Install rules for the library" ${KELVIK_IS_TOP_LEVEL})
if(NOT KELVIK_INSTALL)
  return()
endif()
include(CMakePackageConfigHelpers)

# --- Files ---

set(KELVIK_INCLUDE_FOLDER ${CMAKE_INSTALL_INCLUDEDIR}/kelvik)
set(KELVIK_DOC_FOLDER ${CMAKE_INSTALL_DATAROOTDIR}/doc/kelvik)

install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/inc/
  DESTINATION ${KELVIK_INCLUDE_FOLDER}
  COMPONENT development
  FILES_MATCHING
  PATTERN "*.h"
  PATTERN "*.hpp")
install(
  TARGETS kelvik
  EXPORT KelvikTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS kelvik_static EXPORT KelvikTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
                                                           COMPONENT development)
foreach(page kelvik.3)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3
          COMPONENT development)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/README.md
              ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${KELVIK_DOC_FOLDER}
        COMPONENT development)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/examples/
  DESTINATION ${KELVIK_DOC_FOLDER}/examples
  COMPONENT development
  FILES_MATCHING
  PATTERN "*.c"
  PATTERN "*.cpp"
  PATTERN "*.h"
  PATTERN "*.ini")
install(FILES ${PROJECT_SOURCE_DIR}/packaging/examples.mk
        DESTINATION ${KELVIK_DOC_FOLDER}/examples COMPONENT development RENAME Makefile)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/packaging/service
        DESTINATION ${KELVIK_DOC_FOLDER}/examples COMPONENT development)

# What the tools install themselves.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tools)
if(KELVIK_BUILD_TOOLS)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kelvikctl.1
                ${PROJECT_SOURCE_DIR}/docs/man/kelviklog.1
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kelvik.ini.5
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)

# Installed anywhere, the tools find the library beside them. A prefix that the system searches needs
# no such hint, and a Debian package must not have it: packaging/debian.cmake takes it out.
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}"
   AND NOT DEFINED CMAKE_INSTALL_RPATH)
  file(RELATIVE_PATH libraries /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
  set(CMAKE_INSTALL_RPATH "$ORIGIN/${libraries}")
endif()

# --- The CMake package: find_package(Kelvik 1.2 CONFIG) ---

set(KELVIK_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/Kelvik)
configure_file(${CMAKE_CURRENT_LIST_DIR}/KelvikConfig.cmake.in
               ${PROJECT_BINARY_DIR}/KelvikConfig.cmake @ONLY)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/KelvikConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KelvikConfig.cmake
              ${PROJECT_BINARY_DIR}/KelvikConfigVersion.cmake DESTINATION ${KELVIK_CMAKE_FOLDER}
        COMPONENT development)
install(EXPORT KelvikTargets NAMESPACE Kelvik:: DESTINATION ${KELVIK_CMAKE_FOLDER}
        COMPONENT development)
export(EXPORT KelvikTargets NAMESPACE Kelvik:: FILE ${PROJECT_BINARY_DIR}/KelvikTargets.cmake)

# --- pkg-config ---

# What a C compiler does not link by itself and the static library needs.
set(privateLibraries ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(REMOVE_ITEM privateLibraries ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
list(REMOVE_DUPLICATES privateLibraries)
list(TRANSFORM privateLibraries PREPEND "-l")
list(JOIN privateLibraries " " KELVIK_PC_PRIVATE)
string(APPEND KELVIK_PC_PRIVATE " -pthread")

# Folders are given from the file's own place, so that an installed copy can be moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(KELVIK_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH up /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  string(REGEX REPLACE "/$" "" up "${up}")
  set(KELVIK_PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(kind LIB INCLUDE)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}DIR}")
    set(KELVIK_PC_${kind} ${CMAKE_INSTALL_${kind}DIR})
  else()
    set(KELVIK_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}DIR}")
  endif()
endforeach()
string(APPEND KELVIK_PC_INCLUDE /kelvik)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kelvik.pc.in ${PROJECT_BINARY_DIR}/installed/kelvik.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/installed/kelvik.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# PKG_CONFIG_PATH=<build folder> finds the build tree.
set(KELVIK_PC_PREFIX ${PROJECT_SOURCE_DIR})
set(KELVIK_PC_LIB ${PROJECT_BINARY_DIR}/src)
set(KELVIK_PC_INCLUDE ${PROJECT_SOURCE_DIR}/inc)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kelvik.pc.in ${PROJECT_BINARY_DIR}/kelvik.pc @ONLY)

# --- Debian packages: cpack -G DEB ---

if(KELVIK_IS_TOP_LEVEL AND KELVIK_BUILD_TOOLS)
  include(${PROJECT_SOURCE_DIR}/packaging/debian.cmake)
endif()
