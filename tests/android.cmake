# For the tests under Android's C library, for which nobody packages anything: GoogleTest from its source in Debian's
# package, fmt from its headers. ANDROID_BIONIC names the folder of bin/linker64 and lib64 that their programs run
# with on the machine that builds them; without it they are a device's.
set(ANDROID_BIONIC "" CACHE PATH "Where Android's linker and C library for the programs of the tests lie")

include(FetchContent)
FetchContent_Declare(GTest SOURCE_DIR /usr/src/googletest SYSTEM OVERRIDE_FIND_PACKAGE)
set(INSTALL_GTEST OFF CACHE BOOL "")
find_package(GTest REQUIRED)
# It would keep what a child says before it dies in /data/local/tmp, which only a device has.
target_compile_options(gtest PRIVATE -U__ANDROID__)
file(COPY /usr/include/fmt DESTINATION ${PROJECT_BINARY_DIR}/packages)  # apart from the machine's C headers
file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/fmt-config.cmake "
  if(NOT TARGET fmt::fmt)
    add_library(fmt::fmt INTERFACE IMPORTED GLOBAL)
    target_include_directories(fmt::fmt INTERFACE ${PROJECT_BINARY_DIR}/packages)
    target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
  endif()
")

# The library is the one that ships; what is around it is to be built soon.
add_compile_options(-O0)
# The host's symbols, and the platform's functions that tests stand in for, are found in the program.
set(CMAKE_ENABLE_EXPORTS ON)
if(ANDROID_BIONIC)
  add_link_options(LINKER:--dynamic-linker=${ANDROID_BIONIC}/bin/linker64)
  # There is no time zone data: an empty name is the one that needs none.
  set(CMAKE_CROSSCOMPILING_EMULATOR
    env TMPDIR=/tmp TZ= LD_LIBRARY_PATH=${ANDROID_BIONIC}/lib64:${ANDROID_LIBRARY_DIR})
endif()
