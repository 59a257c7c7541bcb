# Read by cpack before it packs: asks dpkg-shlibdeps what the programs and libraries need.

# needed(result file...): the packages that these files need, as Depends writes them.
function(needed result)
  set(work ${CPACK_QN_BINARY_DIR}/packaging/needed)
  file(WRITE ${work}/debian/control
       "Source: quarnelbe\n\nPackage: quarnelbe\nArchitecture: ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}\n")
  # Neither of the tree's two libraries has a package yet.
  execute_process(COMMAND dpkg-shlibdeps -O --ignore-missing-info -l${CPACK_QN_BINARY_DIR} ${ARGN}
                  WORKING_DIRECTORY ${work} OUTPUT_VARIABLE text ERROR_VARIABLE errors RESULT_VARIABLE status)
  if(NOT status EQUAL 0 OR NOT text MATCHES "^shlibs:Depends=([^\n]+)\n$")
    message(FATAL_ERROR "dpkg-shlibdeps: ${text}${errors}")
  endif()
  set(text "${CMAKE_MATCH_1}")
  if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE STREQUAL i386)
    # Built beside x86_64, they use its packages of 32-bit libraries; on i386 those have their plain names.
    string(REPLACE "libc6-i386" "libc6" text "${text}")
    string(REPLACE "lib32z1" "zlib1g" text "${text}")
    string(REGEX REPLACE "lib32([a-z])" "lib\\1" text "${text}")
  endif()
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

needed(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ${CPACK_QN_BINARY_DIR}/libquarnelBE.so)
needed(CPACK_DEBIAN_STAND-IN_PACKAGE_DEPENDS ${CPACK_QN_BINARY_DIR}/libvxAPI.so)
needed(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${CPACK_QN_PROGRAMS})
string(PREPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${CPACK_QN_LIBRARY_PACKAGE}, ")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${CPACK_QN_LIBRARY_PACKAGE}")
