# GTest::gtest and GTest::gmock. Debian's ready libraries serve a plain native build; with a
# sanitizer, for another machine or without them, googletest is built from Debian's
# /usr/src/googletest.

if(NOT CMAKE_CROSSCOMPILING AND NOT KELVIK_SANITIZE)
  find_package(GTest CONFIG QUIET)
  if(TARGET GTest::gtest AND NOT TARGET GTest::gmock)
    message(FATAL_ERROR "The tests need googlemock too (package libgmock-dev)")
  endif()
endif()
if(NOT TARGET GTest::gtest)
  set(KELVIK_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "Sources of googletest")
  if(NOT EXISTS ${KELVIK_GOOGLETEST_SOURCE}/CMakeLists.txt)
    message(FATAL_ERROR "The tests need googletest (packages libgtest-dev, libgmock-dev), looked for in "
                        "${KELVIK_GOOGLETEST_SOURCE}; or set -DKELVIK_BUILD_TESTS=OFF")
  endif()
  set(INSTALL_GTEST OFF)
  set(BUILD_GMOCK ON)
  add_subdirectory(${KELVIK_GOOGLETEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  foreach(library gtest gmock)
    target_compile_options(${library} PRIVATE -O0)
    if(NOT TARGET GTest::${library})
      add_library(GTest::${library} ALIAS ${library})
    endif()
  endforeach()
endif()
