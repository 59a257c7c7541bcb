# What every target is compiled with, and the warnings that are errors in our own code.

set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

if(QN_I386)
  add_compile_options(-m32)
  add_link_options(-m32)
endif()
if(QN_SANITIZE)
  add_compile_options(-fsanitize=${QN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QN_SANITIZE})
endif()

if(QN_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "QN_FUZZ needs clang, which brings libFuzzer")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
# clang links a sanitizer's runtime into the program alone: a library's references stay open until then.
if(QN_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(QN_CLANG_SANITIZES ON)
endif()

add_library(qn_warnings INTERFACE)
target_compile_options(qn_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wcast-qual -Wcast-align
  -Wformat=2 -Wundef -Wredundant-decls -Wmissing-declarations -Wimplicit-fallthrough -Wvla
  -Wdouble-promotion -Wwrite-strings
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op>
  # GCC 12 sees overlapping copies in "text" + std::string that are none.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # clang warns of a format that a caller handed over with its argument list, and of a C header's
  # open-ended array in C++.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-format-nonliteral>
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-c99-extensions>)

if(QN_CLANG_TIDY)
  find_program(QN_CLANG_TIDY_PROGRAM clang-tidy REQUIRED)
  # It reads the compile commands as clang does, to which some of the compiler's warnings are unknown.
  set(CMAKE_CXX_CLANG_TIDY ${QN_CLANG_TIDY_PROGRAM} --quiet --extra-arg=-Wno-unknown-warning-option)
endif()
