# Debian's cross compiler over the arm64 packages that scripts/setup-aarch64.sh has unpacked; programs run
# under the user-mode emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(DEWARP_AARCH64_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/aarch64-sysroot CACHE PATH "The unpacked arm64 packages")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DEWARP_AARCH64_SYSROOT)
get_filename_component(sysroot ${DEWARP_AARCH64_SYSROOT} REALPATH)

set(CMAKE_SYSROOT ${sysroot})
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${sysroot})
set(ANDROID_LIBRARY_DIR ${sysroot}/usr/lib/aarch64-linux-gnu/android CACHE PATH "")
set(ANDROID_INCLUDE_DIR ${sysroot}/usr/include/android CACHE PATH "")

# The note that GCC 10 laid floating-point pairs out otherwise concerns no library built before it.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
