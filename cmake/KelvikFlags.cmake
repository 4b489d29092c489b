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

# Sanitizers and coverage instrument everything, googletest included: a thread sanitizer that does
# not see half of the program reports what is not there.
if(KELVIK_SANITIZE)
  add_compile_options(-fsanitize=${KELVIK_SANITIZE} -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${KELVIK_SANITIZE})
  if(KELVIK_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()
if(KELVIK_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  # gcov's own functions are not exported by the shared library.
  add_link_options(--coverage -Wl,--exclude-libs,libgcov.a)
endif()
