# CLI11 for the tools, as the target kelvik_cli11. It is header-only, so the host's package serves
# cross builds too; but the host's /usr/include must not stand in a cross compiler's search path,
# so the one folder is reached through a link in the build tree.

find_path(KELVIK_CLI11_FOLDER CLI/CLI.hpp PATHS /usr/include /usr/local/include
          NO_CMAKE_FIND_ROOT_PATH)
mark_as_advanced(KELVIK_CLI11_FOLDER)
if(NOT KELVIK_CLI11_FOLDER)
  message(FATAL_ERROR "The tools need CLI11 (package libcli11-dev), or -DKELVIK_BUILD_TOOLS=OFF")
endif()

file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/cli11)
file(CREATE_LINK ${KELVIK_CLI11_FOLDER}/CLI ${PROJECT_BINARY_DIR}/cli11/CLI SYMBOLIC)
add_library(kelvik_cli11 INTERFACE)
target_include_directories(kelvik_cli11 SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/cli11)
