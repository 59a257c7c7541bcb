# `cpack` makes Debian packages of what cmake/install.cmake lays out; ./package builds them for both word sizes.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quarnelbe)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "quarnelBE maintainers <maintainers@quarnelbe.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools stand-in)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# pkg-config's files name the prefix, so it must be the one that the files come to lie under.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE quarnelbe)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
if(QN_I386 OR CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
endif()
set(qn_deb_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# qn_deb(component package section multi-arch synopsis [line...]): the lines are the long description.
function(qn_deb component package section multi_arch synopsis)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package} PARENT_SCOPE)
  # CPack has a variable for this second field from 3.31 on; a field's text may as well go on with the next.
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}\nMulti-Arch: ${multi_arch}" PARENT_SCOPE)
  list(JOIN ARGN "\n" text)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${synopsis}\n${text}" PARENT_SCOPE)
endfunction()

qn_deb(runtime libquarnelbe${PROJECT_VERSION_MAJOR} libs same "library of a telephony voice-response platform"
  "Dials, logs through a named pipe, expands log records into text, and keeps"
  "arrays, buffers, options, a clipboard file, pattern programs and a clock for"
  "every process of the platform."
  "." "The platform's own libvxAPI.so must be there, or its stand-in.")
qn_deb(development libquarnelbe-dev libdevel same "library of a voice-response platform - development files"
  "Headers, manual pages, examples, and the files by which pkg-config and CMake"
  "find the library.")
qn_deb(tools quarnelbe-tools utils foreign "log daemon, log viewer and other tools of a voice-response platform"
  "The catalogue compiler, the daemon that keeps the log, viewer and editor of"
  "log files, the table of priorities and destinations, and access to clipboard"
  "files.")
qn_deb(stand-in libvxapi-stand-in libs same "stand-in for the call control of a voice-response platform"
  "A libvxAPI.so whose line is told by a script, for machines that have no"
  "platform: without a script it refuses every call. It lies in a folder of its"
  "own, which the loader searches after the others, so that a platform's library"
  "is found first.")

set(CPACK_DEBIAN_STAND-IN_PACKAGE_PROVIDES libvxapi)
# Not Depends: a platform's library may have come without a package. One that has its own provides libvxapi.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "libvxapi-stand-in | libvxapi")
# An application that logs includes what the catalogue compiler makes.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS quarnelbe-tools)

# ---- what each package tells dpkg of itself
set(qn_control ${PROJECT_BINARY_DIR}/packaging)
# After every other file of that folder, and after /usr/lib, which is otherwise searched last.
set(CPACK_QN_LOADER_FILE etc/ld.so.conf.d/zzz-quarnel-stand-in-${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}.conf)
set(CPACK_QN_STAND_IN_DIR /usr/${QN_STAND_IN_DIR})
foreach(component runtime stand-in)
  file(WRITE ${qn_control}/${component}/triggers "activate-noawait ldconfig\n")
endforeach()
file(WRITE ${qn_control}/runtime/shlibs
     "libquarnelBE ${PROJECT_VERSION_MAJOR} libquarnelbe${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})\n")
file(WRITE ${qn_control}/stand-in/conffiles "/${CPACK_QN_LOADER_FILE}\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${qn_control}/runtime/triggers;${qn_control}/runtime/shlibs")
set(CPACK_DEBIAN_STAND-IN_PACKAGE_CONTROL_EXTRA "${qn_control}/stand-in/triggers;${qn_control}/stand-in/conffiles")

# ---- what is found out while packing: what the programs need, and what only a package holds
set(CPACK_QN_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_QN_BINARY_DIR ${PROJECT_BINARY_DIR})
set(CPACK_QN_LIBRARY_PACKAGE "libquarnelbe${PROJECT_VERSION_MAJOR} (= ${qn_deb_version})")
foreach(program ${qn_programs})
  list(APPEND CPACK_QN_PROGRAMS ${PROJECT_BINARY_DIR}/tools/${program})
endforeach()
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/dependencies.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/stage.cmake)

include(CPack)
