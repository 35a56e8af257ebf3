# The platform's own libraries as Debian packages them: log, trace, native_handle and RefBase.
set(ANDROID_LIBRARY_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android CACHE PATH
  "Where liblog, libcutils and libutils of the platform lie")
set(ANDROID_INCLUDE_DIR /usr/include/android CACHE PATH "Where their headers lie")

add_library(dewarp_headers INTERFACE)
target_include_directories(dewarp_headers INTERFACE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
target_include_directories(dewarp_headers SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})

foreach(name log cutils utils)
  find_library(ANDROID_${name}_LIBRARY ${name} PATHS ${ANDROID_LIBRARY_DIR} NO_DEFAULT_PATH REQUIRED)
  add_library(platform_${name} INTERFACE)
  target_link_libraries(platform_${name} INTERFACE ${ANDROID_${name}_LIBRARY})
  # The packaged libraries need one another; the linker has to find what it is not told to link.
  target_link_options(platform_${name} INTERFACE LINKER:-rpath-link,${ANDROID_LIBRARY_DIR})
endforeach()
