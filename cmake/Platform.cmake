# The platform's own libraries: log, trace, native_handle and RefBase. As Debian packages them, unless the toolchain
# file knows another place.
set(ANDROID_LIBRARY_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android CACHE PATH
  "Where liblog, libcutils and libutils of the platform lie")
set(ANDROID_INCLUDE_DIR /usr/include/android CACHE PATH "Where their headers lie")
# A device's loader knows where it has them, a workstation's has to be told.
set(ANDROID_RUN_PATH "")
if(NOT ANDROID)
  string(REPLACE "${CMAKE_SYSROOT}/" "/" ANDROID_RUN_PATH ${ANDROID_LIBRARY_DIR})
endif()

add_library(dewarp_headers INTERFACE)
target_include_directories(dewarp_headers INTERFACE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
target_include_directories(dewarp_headers SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})

foreach(name log cutils utils)
  # Here and nowhere else: an NDK has a liblog of its own, and looks for everything inside itself.
  find_library(ANDROID_${name}_LIBRARY ${name} PATHS ${ANDROID_LIBRARY_DIR} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT ANDROID_${name}_LIBRARY)
    message(FATAL_ERROR "expected lib${name}.so of the platform in ANDROID_LIBRARY_DIR, ${ANDROID_LIBRARY_DIR}")
  endif()
  add_library(platform_${name} INTERFACE)
  target_link_libraries(platform_${name} INTERFACE ${ANDROID_${name}_LIBRARY})
  # The packaged libraries need one another; the linker has to find what it is not told to link.
  target_link_options(platform_${name} INTERFACE LINKER:-rpath-link,${ANDROID_LIBRARY_DIR})
endforeach()
