# The NDK's own toolchain file, whichever of its two kinds it takes, and the platform's libraries and headers, which
# the NDK lacks. Both folders come from the environment when a build folder is made; its cache keeps them.
foreach(folder ANDROID_NDK_HOME ANDROID_PLATFORM_TREE)
  if(NOT ${folder})
    set(${folder} "$ENV{${folder}}" CACHE PATH "See docs/DEVICE.md" FORCE)
  endif()
endforeach()
set(ndk_file ${ANDROID_NDK_HOME}/build/cmake/android.toolchain.cmake)
if(NOT EXISTS ${ndk_file})
  message(FATAL_ERROR "expected ANDROID_NDK_HOME to name an NDK, which has build/cmake/android.toolchain.cmake; "
    "it is \"${ANDROID_NDK_HOME}\"")
endif()
if(NOT EXISTS ${ANDROID_PLATFORM_TREE}/lib64 OR NOT EXISTS ${ANDROID_PLATFORM_TREE}/include)
  message(FATAL_ERROR "expected ANDROID_PLATFORM_TREE to name the folder of lib64 (liblog, libcutils, libutils, built "
    "for ${ANDROID_ABI}) and include (cutils, system, utils); it is \"${ANDROID_PLATFORM_TREE}\"")
endif()
set(ANDROID_LIBRARY_DIR ${ANDROID_PLATFORM_TREE}/lib64 CACHE PATH "")
set(ANDROID_INCLUDE_DIR ${ANDROID_PLATFORM_TREE}/include CACHE PATH "")

include(${ndk_file})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ANDROID_NDK_HOME ANDROID_PLATFORM_TREE)
