# One list of warnings for every target of ours; DEWARP_WERROR makes them errors, as CI does.
add_library(dewarp_warnings INTERFACE)
target_compile_options(dewarp_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wformat=2 -Wnull-dereference
  $<$<BOOL:${DEWARP_WERROR}>:-Werror>)
