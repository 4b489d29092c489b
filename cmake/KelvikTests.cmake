# How a test is declared. Tests are executables: one ctest test each, so that an emulator starts once
# for a whole file of cases. The ctest name is <folder>.<NAME>, as in unit.SizeWriter.
#
#   kelvik_add_test(NAME SizeWriter SOURCES SizeWriterTest.cpp
#     [SHARED | STATIC]     link libkelvik.so or libkelvik.a, as a user does; otherwise the test sees
#                           the objects and may include the headers of src/
#     [NO_MAIN]             the sources have their own main(), and need no googletest (C programs)
#     [LIBS ...]            further libraries: kelvik_fake_clock, kelvik_syslog_capture, GTest::gmock
#     [PROGRAMS ...]        executables that the test runs; the path of NAME is a string KELVIK_NAME
#                           ('-' becomes '_', upper case): kelviklog is KELVIK_KELVIKLOG
#     [LABELS ...]          host-only (not run by cross builds; enter it in tests/host-only.txt),
#                           slow, anything else that ctest -L shall find
#     [SERIAL]              never runs beside another test (it measures time)
#     [TIMEOUT seconds])    hard limit of the whole executable, default 60; multiplied by
#                           KELVIK_TIME_FACTOR; tests with the longest one begin first
#
#   kelvik_add_program(NAME writer SOURCES ... [SHARED | STATIC] [LIBS ...])
#                           a program that tests run; it is no test itself
#   kelvik_add_script_test(NAME x SCRIPT file.sh [ARGS ...] [LABELS ...] [TIMEOUT s] [SERIAL])
#                           a POSIX shell script that fails by its exit code
#   kelvik_own_operator_new(names ...)
#                           tests of this folder that define operator new
#   kelvik_add_fuzzer(NAME SOURCE SEEDS [LIBS ...])
#                           libFuzzer target of the fuzz preset; elsewhere a test over its seeds

set(KELVIK_DEFAULT_TIMEOUT 60)

# What the sanitizers shall do beside what they do by default; nothing is suppressed.
set(KELVIK_TEST_ENVIRONMENT "")
if(KELVIK_SANITIZE)
  set(KELVIK_TEST_ENVIRONMENT
      "ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1"
      "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
      "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")
endif()

if(KELVIK_COVERAGE)
  # What gcov has to say when a test has taken its files away would stand in captured output.
  list(APPEND KELVIK_TEST_ENVIRONMENT "GCOV_ERROR_FILE=/dev/null")
endif()

# The folder's name is the first half of a test's name.
function(kelvik_test_name name out)
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  if(folder STREQUAL "tests")
    set(folder script)
  endif()
  set(${out} ${folder}.${name} PARENT_SCOPE)
endfunction()

function(kelvik_finish_test name)
  cmake_parse_arguments(arg "" "TIMEOUT;SERIAL" "LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT ${KELVIK_DEFAULT_TIMEOUT})
  endif()
  math(EXPR timeout "${arg_TIMEOUT} * ${KELVIK_TIME_FACTOR}")
  # What may take longest begins first, so that a run does not end with one test at work.
  set_tests_properties(
    ${name} PROPERTIES TIMEOUT ${timeout} COST ${arg_TIMEOUT} LABELS "${arg_LABELS}"
                       RUN_SERIAL "${arg_SERIAL}"
                       ENVIRONMENT "${KELVIK_TEST_ENVIRONMENT}")
endfunction()

# Links a test or a program of a test with the library in the form that was asked for.
function(kelvik_link_library_under_test target is_shared is_static)
  if(is_shared)
    target_link_libraries(${target} PRIVATE Kelvik::kelvik)
  elseif(is_static)
    target_link_libraries(${target} PRIVATE Kelvik::kelvik_static)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  else()
    target_link_libraries(${target} PRIVATE kelvik_objects)
  endif()
  target_link_libraries(${target} PRIVATE kelvik_platform kelvik_warnings)
  target_compile_options(
    ${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
endfunction()

function(kelvik_add_test)
  cmake_parse_arguments(arg "SHARED;STATIC;NO_MAIN;SERIAL" "NAME;TIMEOUT"
                        "SOURCES;LIBS;LABELS;PROGRAMS" ${ARGN})
  if(arg_UNPARSED_ARGUMENTS OR NOT arg_NAME OR NOT arg_SOURCES)
    message(FATAL_ERROR "kelvik_add_test(${arg_NAME}): wrong arguments ${arg_UNPARSED_ARGUMENTS}")
  endif()
  kelvik_test_name(${arg_NAME} name)
  string(REPLACE "." "_" target test_${name})
  add_executable(${target} ${arg_SOURCES})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name})
  if(NOT arg_NO_MAIN)
    target_link_libraries(${target} PRIVATE kelvik_test_support)
  endif()
  target_link_libraries(${target} PRIVATE ${arg_LIBS})
  kelvik_link_library_under_test(${target} "${arg_SHARED}" "${arg_STATIC}")
  if(name MATCHES "^(integration|fault)" OR (KELVIK_SANITIZE AND NOT name MATCHES "Ini|RecordFormat"))
    # Most of a build's time would be spent on optimising these; what they test is the library.
    # The others take longer to run without than to compile with it.
    target_compile_options(${target} PRIVATE -O0)
  endif()
  foreach(program IN LISTS arg_PROGRAMS)
    string(MAKE_C_IDENTIFIER ${program} macro)
    string(TOUPPER KELVIK_${macro} macro)
    add_dependencies(${target} ${program})
    target_compile_definitions(${target} PRIVATE ${macro}="$<TARGET_FILE:${program}>")
  endforeach()
  add_test(NAME ${name} COMMAND ${target})
  kelvik_finish_test(${name} SERIAL ${arg_SERIAL} TIMEOUT ${arg_TIMEOUT} LABELS ${arg_LABELS})
endfunction()

# The C++ part of clang's thread sanitizer defines it too; what is linked as C goes without that part.
function(kelvik_own_operator_new)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND KELVIK_SANITIZE STREQUAL "thread")
    foreach(test IN LISTS ARGN)
      kelvik_test_name(${test} name)
      string(REPLACE "." "_" target test_${name})
      set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
    endforeach()
  endif()
endfunction()

function(kelvik_add_program)
  cmake_parse_arguments(arg "SHARED;STATIC" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(${arg_NAME} ${arg_SOURCES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS})
  kelvik_link_library_under_test(${arg_NAME} "${arg_SHARED}" "${arg_STATIC}")
endfunction()

function(kelvik_add_script_test)
  cmake_parse_arguments(arg "SERIAL" "NAME;SCRIPT;TIMEOUT" "ARGS;LABELS" ${ARGN})
  kelvik_test_name(${arg_NAME} name)
  add_test(NAME ${name} COMMAND sh ${arg_SCRIPT} ${arg_ARGS})
  kelvik_finish_test(${name} SERIAL ${arg_SERIAL} TIMEOUT ${arg_TIMEOUT} LABELS ${arg_LABELS})
endfunction()

function(kelvik_add_fuzzer fuzzer source seeds)
  cmake_parse_arguments(arg "" "" "LIBS" ${ARGN})
  get_filename_component(seeds ${seeds} ABSOLUTE)
  set(target fuzz_${fuzzer})
  add_executable(${target} ${source})
  target_link_libraries(${target} PRIVATE ${arg_LIBS})
  kelvik_link_library_under_test(${target} OFF OFF)
  if(KELVIK_BUILD_FUZZ)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer)
    # scripts/fuzz.sh reads this list: target, then its seeds.
    file(APPEND ${PROJECT_BINARY_DIR}/fuzzers.txt "${CMAKE_CURRENT_BINARY_DIR}/${target} ${seeds}\n")
  else()
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/fuzz/ReplaySeeds.cpp)
    add_test(NAME fuzz.${fuzzer}.Seeds COMMAND ${target} ${seeds})
    kelvik_finish_test(fuzz.${fuzzer}.Seeds)
  endif()
endfunction()
