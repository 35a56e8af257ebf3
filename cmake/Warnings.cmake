# One list of warnings for every target of ours; DEWARP_WERROR makes them errors, as CI does.
add_library(dewarp_warnings INTERFACE)
target_compile_options(dewarp_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wformat=2 -Wnull-dereference
  $<$<BOOL:${DEWARP_WERROR}>:-Werror>)
# When GCC 12 builds for a sanitizer it takes members of std::regex itself for uninitialised, and pointers of the JSON
# library for null.
if(DEWARP_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(dewarp_warnings INTERFACE -Wno-maybe-uninitialized -Wno-null-dereference)
endif()
