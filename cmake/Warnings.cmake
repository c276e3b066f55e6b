# Warning flags shared by every target of ours.
add_library(jorvane_warnings INTERFACE)
# Shadowed locals: GCC names the kind; clang (the fuzz tree) has its own name.
target_compile_options(jorvane_warnings INTERFACE -Wall -Wextra -Wpedantic
  $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> $<$<CXX_COMPILER_ID:Clang>:-Wshadow-uncaptured-local> -Wnon-virtual-dtor)
if(JORVANE_WERROR)
  target_compile_options(jorvane_warnings INTERFACE -Werror)
endif()
