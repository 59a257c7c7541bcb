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

add_library(qn_warnings INTERFACE)
target_compile_options(qn_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wcast-qual -Wcast-align
  -Wformat=2 -Wundef -Wredundant-decls -Wmissing-declarations -Wimplicit-fallthrough -Wvla
  -Wdouble-promotion -Wwrite-strings
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op>
  # GCC 12 sees overlapping copies in "text" + std::string that are none.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

if(QN_CLANG_TIDY)
  find_program(QN_CLANG_TIDY_PROGRAM clang-tidy REQUIRED)
  # It reads the compile commands as clang does, to which some of the compiler's warnings are unknown.
  set(CMAKE_CXX_CLANG_TIDY ${QN_CLANG_TIDY_PROGRAM} --quiet --extra-arg=-Wno-unknown-warning-option)
endif()
