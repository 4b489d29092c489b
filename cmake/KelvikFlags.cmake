# Compiler and linker flags as interface targets, and the flags that must reach everything.
#
#   kelvik_warnings   the warnings that all our own code is clean of
#   kelvik_platform   what the sources need to see of the system (64-bit time on 32-bit targets)
#   kelvik_hardening  what the shipped library is protected with

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)

if(KELVIK_IS_TOP_LEVEL)
  # -O3 unrolls for servers; the devices want the smaller code.
  set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
  set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
endif()

add_library(kelvik_warnings INTERFACE)
target_compile_options(
  kelvik_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                            -Wformat-nonliteral
                            $<$<BOOL:${KELVIK_WERROR}>:-Werror>)

add_library(kelvik_platform INTERFACE)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(kelvik_platform INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

add_library(kelvik_hardening INTERFACE)
target_compile_options(kelvik_hardening INTERFACE -fstack-protector-strong)
if(NOT KELVIK_SANITIZE AND NOT KELVIK_COVERAGE)
  # The sanitizers check the same calls themselves; without optimisation it only warns.
  target_compile_options(
    kelvik_hardening INTERFACE
      "$<$<NOT:$<CONFIG:Debug>>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
endif()

# What makes libkelvik.so smaller at no cost in speed or protection.
#   noseparate-code  constants stand in the pages of the code instead of in pages of their own: one
#                    page less to be mapped and up to 8 KiB less on the disk
#   pack-relative-relocs  what the loader has to add to addresses in 1/20 of the space. Needs a C
#                    library that knows it (glibc 2.36, musl 1.2.4), so it follows what is built with
#   max-page-size    the largest page of the kernels that the library is for; on MIPS the linker
#                    pads for 64 KiB pages, of which devices have none
option(KELVIK_PACK_RELOCATIONS "Pack relative relocations where linker and C library can" ON)
set(KELVIK_PAGE_SIZE "" CACHE STRING "Largest page size of the target's kernels, in bytes; empty: the linker's")
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckCXXSourceCompiles)
set(KELVIK_SIZE_LINK_OPTIONS "")
check_linker_flag(CXX "-Wl,--fatal-warnings,-z,noseparate-code" KELVIK_HAS_NOSEPARATE_CODE)
if(KELVIK_HAS_NOSEPARATE_CODE)
  list(APPEND KELVIK_SIZE_LINK_OPTIONS -Wl,-z,noseparate-code)
endif()
if(KELVIK_PACK_RELOCATIONS)
  check_cxx_source_compiles(
    "#include <cstdlib>
    #if !defined(__GLIBC__) || !__GLIBC_PREREQ(2, 36)
    #error older than the packed form
    #endif
    int main() {}" KELVIK_LIBC_READS_PACKED)
  check_linker_flag(CXX "-Wl,--fatal-warnings,-z,pack-relative-relocs" KELVIK_HAS_PACKED_RELOCATIONS)
  if(KELVIK_LIBC_READS_PACKED AND KELVIK_HAS_PACKED_RELOCATIONS)
    list(APPEND KELVIK_SIZE_LINK_OPTIONS -Wl,-z,pack-relative-relocs)
  endif()
endif()
if(KELVIK_PAGE_SIZE)
  list(APPEND KELVIK_SIZE_LINK_OPTIONS -Wl,-z,max-page-size=${KELVIK_PAGE_SIZE})
endif()
check_cxx_compiler_flag(-Oz KELVIK_HAS_OZ)
check_cxx_compiler_flag(--param=uninlined-function-insns=9 KELVIK_HAS_UNINLINED_COST)
option(KELVIK_MIPS16 "MIPS: all but a record's road in the 16-bit instructions (MIPS16e)" OFF)
if(KELVIK_MIPS16)
  check_cxx_compiler_flag(-mips16 KELVIK_HAS_MIPS16)
  # clang takes the option and fails with the sources.
  if(NOT KELVIK_HAS_MIPS16 OR NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    message(FATAL_ERROR "KELVIK_MIPS16 is ON, but the compiler is no gcc with -mips16")
  endif()
endif()
# Only the wish is kept: what AUTO means is found anew for another build type.
set(KELVIK_WHOLE_LIBRARY AUTO CACHE STRING "Optimise libkelvik.so across its source files (gcc)")
set_property(CACHE KELVIK_WHOLE_LIBRARY PROPERTY STRINGS AUTO ON OFF)
if(KELVIK_WHOLE_LIBRARY STREQUAL "AUTO")
  set(kelvik_whole_library OFF)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE MATCHES "^(MinSizeRel|Release)$"
     AND NOT CMAKE_CONFIGURATION_TYPES AND NOT KELVIK_SANITIZE AND NOT KELVIK_COVERAGE)
    set(CMAKE_REQUIRED_FLAGS "-flto -fno-fat-lto-objects")
    set(CMAKE_REQUIRED_LINK_OPTIONS -flto=auto)
    check_cxx_source_compiles("int main() {}" KELVIK_HAS_LTO)
    unset(CMAKE_REQUIRED_FLAGS)
    unset(CMAKE_REQUIRED_LINK_OPTIONS)
    if(KELVIK_HAS_LTO)
      set(kelvik_whole_library ON)
    endif()
  endif()
else()
  set(kelvik_whole_library ${KELVIK_WHOLE_LIBRARY})
endif()

# Sanitizers and coverage instrument everything, googletest included: a thread sanitizer that does
# not see half of the program reports what is not there.
if(KELVIK_SANITIZE)
  add_compile_options(-fsanitize=${KELVIK_SANITIZE} -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${KELVIK_SANITIZE})
  if(KELVIK_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
    # clang's runtime is part of the executable: what it has for C++, which libkelvik.so needs, must be
    # part of a C program's too.
    add_link_options("$<$<LINK_LANG_AND_ID:C,Clang>:-fsanitize-link-c++-runtime;-lstdc++>")
  endif()
endif()
if(KELVIK_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  # gcov's own functions are not exported by the shared library.
  add_link_options(--coverage -Wl,--exclude-libs,libgcov.a)
endif()
