# `format` rewrites the sources, `format-check` fails on a difference.
find_program(QN_CLANG_FORMAT clang-format)
if(QN_CLANG_FORMAT)
  file(GLOB_RECURSE qn_formatted CONFIGURE_DEPENDS
       ${CMAKE_SOURCE_DIR}/*.h)
  foreach(folder core buffers clock log dialer clipboard options regex platform tools examples tests bench)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp
         ${CMAKE_SOURCE_DIR}/${folder}/*.c)
    list(APPEND qn_formatted ${found})
  endforeach()
  list(FILTER qn_formatted EXCLUDE REGEX "/(build|golden)/") # what programs wrote stays as they wrote it
  add_custom_target(format COMMAND ${QN_CLANG_FORMAT} -i ${qn_formatted} COMMENT "Formatting" VERBATIM)
  add_custom_target(format-check COMMAND ${QN_CLANG_FORMAT} --dry-run -Werror ${qn_formatted}
                    COMMENT "Looking at the format" VERBATIM)
endif()
