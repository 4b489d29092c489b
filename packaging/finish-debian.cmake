# Run by cpack between installing and packing: gives each package what Debian's policy asks for beyond
# cmake --install.
find_program(gzip gzip REQUIRED)

# Compressed without a time of its own, so that equal trees make equal packages.
function(compress file)
  execute_process(COMMAND ${gzip} -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD ${file}.gz PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

function(write_documents folder)
  file(MAKE_DIRECTORY ${folder})
  file(READ ${CPACK_KELVIK_SOURCE}/LICENSE licence)
  file(WRITE ${folder}/copyright "Files: *\n${licence}")
  file(COPY ${CPACK_KELVIK_SOURCE}/CHANGELOG.md DESTINATION ${folder})
  file(RENAME ${folder}/CHANGELOG.md ${folder}/changelog)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${folder}/changelog.Debian
       "kelvik (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
       "  * Version ${CPACK_PACKAGE_VERSION}; its changes are in changelog.gz.\n\n"
       " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  compress(${folder}/changelog)
  compress(${folder}/changelog.Debian)
  file(CHMOD ${folder}/copyright PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

set(runtime ${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME})
set(development ${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME})
set(tools ${CPACK_DEBIAN_TOOLS_PACKAGE_NAME})
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)
  if(NOT IS_DIRECTORY ${root})
    message(FATAL_ERROR "${root} is not there")
  endif()

  # The documents stand under the name of the package.
  set(doc ${root}/share/doc)
  if(IS_DIRECTORY ${doc}/kelvik)
    file(REMOVE ${doc}/kelvik/LICENSE ${doc}/kelvik/CHANGELOG.md)
    file(REMOVE_RECURSE ${doc}/${${component}})
    file(RENAME ${doc}/kelvik ${doc}/${${component}})
  endif()
  write_documents(${doc}/${${component}})

  file(GLOB_RECURSE pages ${root}/share/man/*.[1-8])
  foreach(page IN LISTS pages)
    compress(${page})
  endforeach()
  file(GLOB programs ${root}/bin/*)
  foreach(program IN LISTS programs)
    file(RPATH_REMOVE FILE ${program})
  endforeach()

  # Whatever the umask of who packs.
  file(GLOB_RECURSE entries LIST_DIRECTORIES true ${root}/*)
  list(APPEND entries ${root})
  foreach(entry IN LISTS entries)
    if(IS_DIRECTORY ${entry} AND NOT IS_SYMLINK ${entry})
      file(CHMOD ${entry} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                      WORLD_READ WORLD_EXECUTE)
    endif()
  endforeach()
endforeach()
