# Run by cpack when the files of the components are laid out: adds what only a package has.
set(source ${CPACK_QN_SOURCE_DIR}/packaging)

function(compress)
  foreach(file ${ARGN})
    execute_process(COMMAND gzip -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
endfunction()

function(put text file)
  file(WRITE ${file} "${text}")
  file(CHMOD ${file} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(stage ${CPACK_TEMPORARY_DIRECTORY}/${component})
  set(doc ${stage}/usr/share/doc/${package})
  file(READ ${source}/copyright text)
  put("${text}" ${doc}/copyright)
  file(READ ${source}/changelog text)
  put("${text}" ${doc}/changelog.Debian)
  compress(${doc}/changelog.Debian)
  file(GLOB pages ${stage}/usr/share/man/man*/*)
  compress(${pages})
  if(EXISTS ${source}/${package}.lintian-overrides)
    file(READ ${source}/${package}.lintian-overrides text)
    put("${text}" ${stage}/usr/share/lintian/overrides/${package})
  endif()
endforeach()

put("# The stand-in for a platform's libvxAPI.so comes last, so that a platform's own is found first.
/lib\n/usr/lib\n${CPACK_QN_STAND_IN_DIR}\n" ${CPACK_TEMPORARY_DIRECTORY}/stand-in/${CPACK_QN_LOADER_FILE})

# The umask of whoever packs is no part of a package.
file(GLOB_RECURSE all LIST_DIRECTORIES TRUE ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(each ${all})
  if(IS_DIRECTORY ${each})
    file(CHMOD ${each} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
         WORLD_READ WORLD_EXECUTE)
  endif()
endforeach()
