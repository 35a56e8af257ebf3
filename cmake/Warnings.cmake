# One list of warnings for every target of ours; DEWARP_WERROR makes them errors, as CI does.
add_library(dewarp_warnings INTERFACE)
target_compile_options(dewarp_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wformat=2 -Wnull-dereference
  $<$<BOOL:${DEWARP_WERROR}>:-Werror>)
# GCC 12 takes members of std::regex itself for uninitialised when it builds for a sanitizer.
if(DEWARP_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(dewarp_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
