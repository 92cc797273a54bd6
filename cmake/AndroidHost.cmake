# Debian's packaged Android host libraries (liblog, libutils, libbase) as
# imported targets.
set(QMKV_ANDROID_INCLUDE /usr/include/android)
set(QMKV_ANDROID_LIBDIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)

foreach(lib log utils base)
  find_library(QMKV_ANDROID_${lib} NAMES ${lib} PATHS ${QMKV_ANDROID_LIBDIR} NO_DEFAULT_PATH REQUIRED)
  add_library(android::${lib} SHARED IMPORTED)
  set_target_properties(android::${lib} PROPERTIES
    IMPORTED_LOCATION ${QMKV_ANDROID_${lib}}
    INTERFACE_INCLUDE_DIRECTORIES ${QMKV_ANDROID_INCLUDE})
endforeach()

# Executables and libraries find the Android host libraries at run time.
list(APPEND CMAKE_BUILD_RPATH ${QMKV_ANDROID_LIBDIR})
list(APPEND CMAKE_INSTALL_RPATH ${QMKV_ANDROID_LIBDIR})
