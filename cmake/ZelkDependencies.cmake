# Third-party libraries, all from Debian packages: cJSON, libpng, Android's liblog and libcutils (headers
# under /usr/include/android, libraries in the android folder of the multiarch library dir).
find_package(cJSON REQUIRED)
if(NOT TARGET cjson)
  message(FATAL_ERROR "cJSON was found but provides no 'cjson' target")
endif()

set(ZELK_ANDROID_LIBDIR "/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android")
set(ZELK_ANDROID_INCLUDEDIR "/usr/include/android")

foreach(_lib log cutils)
  find_library(ZELK_ANDROID_${_lib}_LIBRARY NAMES ${_lib} PATHS ${ZELK_ANDROID_LIBDIR}
               NO_DEFAULT_PATH REQUIRED)
  add_library(android::${_lib} SHARED IMPORTED GLOBAL)
  set_target_properties(android::${_lib} PROPERTIES
    IMPORTED_LOCATION "${ZELK_ANDROID_${_lib}_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${ZELK_ANDROID_INCLUDEDIR}")
endforeach()

# libpng: the command line's chart picture (and its tests, which decode what it encodes).
find_package(PNG REQUIRED)
