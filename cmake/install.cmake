# What `cmake --install` lays out, in four components: runtime, development, tools and stand-in. cmake/package.cmake
# makes a Debian package of each.

# Both word sizes lie side by side under one prefix, where the system has a folder for each.
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
  set(qn_triplet ${CMAKE_LIBRARY_ARCHITECTURE})
  if(QN_I386)
    string(REGEX REPLACE "^x86_64-" "i386-" qn_triplet ${qn_triplet})
  endif()
  set(CMAKE_INSTALL_LIBDIR lib/${qn_triplet} CACHE PATH "Object code libraries, below the prefix")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QN_HEADERS_DIR ${CMAKE_INSTALL_INCLUDEDIR}/quarnel)
# Never beside a platform's own libvxAPI.so.
set(QN_STAND_IN_DIR ${CMAKE_INSTALL_LIBDIR}/quarnel/stand-in)

# ---- libraries
# libquarnelBE.so belongs to the runtime: programs that were linked before the library had a version load that name.
install(TARGETS quarnelBE LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT runtime)
install(TARGETS vxAPI LIBRARY DESTINATION ${QN_STAND_IN_DIR} COMPONENT stand-in)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/README.stand-in DESTINATION ${QN_STAND_IN_DIR} COMPONENT stand-in
        RENAME README)

# ---- headers: those of quarnel.h, what they include, and the stand-in's own
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/quarnel.h)
file(STRINGS ${PROJECT_SOURCE_DIR}/quarnel.h qn_headers REGEX "^#include \"")
list(TRANSFORM qn_headers REPLACE "^#include \"(.*)\".*" "\\1")
foreach(header quarnel.h core/export.h platform/String.h platform/vxAPI.h platform/lineScript.h ${qn_headers})
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${QN_HEADERS_DIR}/${folder} COMPONENT development)
endforeach()

# ---- how other builds find them
# pkg-config's files name the prefix, which is known for certain only while installing.
foreach(name quarnelBE vxAPI-stand-in)
  set(component development)
  if(name STREQUAL vxAPI-stand-in)
    set(component stand-in)
  endif()
  install(CODE "
    set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
    set(libdir \"${CMAKE_INSTALL_LIBDIR}\")
    set(includedir \"${CMAKE_INSTALL_INCLUDEDIR}\")
    set(standindir \"${QN_STAND_IN_DIR}\")
    set(version \"${PROJECT_VERSION}\")
    set(file \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/${name}.pc\")
    message(STATUS \"Installing: \$ENV{DESTDIR}\${file}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in\" \"\$ENV{DESTDIR}\${file}\" @ONLY)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${file}\")"
    COMPONENT ${component})
endforeach()

set(QN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/quarnelBE)
configure_package_config_file(cmake/quarnelBEConfig.cmake.in ${PROJECT_BINARY_DIR}/cmake/quarnelBEConfig.cmake
  INSTALL_DESTINATION ${QN_CMAKE_DIR} PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR QN_STAND_IN_DIR)
# It refuses the other word size too, so that no build finds a library that it cannot link.
block(SCOPE_FOR VARIABLES)
  if(QN_I386)
    set(CMAKE_SIZEOF_VOID_P 4) # CMake asked the compiler before -m32 was given
  endif()
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/quarnelBEConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
endblock()
install(FILES ${PROJECT_BINARY_DIR}/cmake/quarnelBEConfig.cmake
        ${PROJECT_BINARY_DIR}/cmake/quarnelBEConfigVersion.cmake
        DESTINATION ${QN_CMAKE_DIR} COMPONENT development)

# ---- tools, with what a shell completes of them
get_property(qn_programs GLOBAL PROPERTY QN_PROGRAMS)
if(qn_programs)
  install(TARGETS ${qn_programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
foreach(shell bash:bash-completion/completions zsh:zsh/vendor-completions)
  string(REPLACE ":" ";" shell ${shell})
  list(POP_FRONT shell name)
  file(GLOB files CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/completions/${name}/*)
  install(FILES ${files} DESTINATION ${CMAKE_INSTALL_DATADIR}/${shell} COMPONENT tools)
endforeach()

# ---- manual pages and documents
foreach(section 1 3 5 8)
  set(component tools)
  if(section EQUAL 3)
    set(component development)
  endif()
  file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/man${section}/*.${section}*)
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endforeach()
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
        PATTERN CMakeLists.txt EXCLUDE PATTERN .clang-format EXCLUDE)
