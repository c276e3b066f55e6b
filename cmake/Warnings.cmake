# Warning flags shared by every target of ours.
add_library(jorvane_warnings INTERFACE)
target_compile_options(jorvane_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow=local -Wnon-virtual-dtor)
if(JORVANE_WERROR)
  target_compile_options(jorvane_warnings INTERFACE -Werror)
endif()
