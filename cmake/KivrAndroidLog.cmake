# The Android log: liblog of the device, or Debian's android-liblog-dev, which keeps the library
# and its header in directories of their own.

find_library(KIVR_LOG_FOUND_LIBRARY log PATH_SUFFIXES android)
find_path(KIVR_LOG_FOUND_INCLUDE_DIR android/log.h PATH_SUFFIXES android)
if(NOT KIVR_LOG_LIBRARY)
    set(KIVR_LOG_LIBRARY ${KIVR_LOG_FOUND_LIBRARY})
endif()
if(NOT KIVR_LOG_INCLUDE_DIR)
    set(KIVR_LOG_INCLUDE_DIR ${KIVR_LOG_FOUND_INCLUDE_DIR})
endif()
if(NOT KIVR_LOG_LIBRARY OR NOT KIVR_LOG_INCLUDE_DIR)
    message(FATAL_ERROR "The Android log library was not found: run script/setup, or set "
                        "KIVR_LOG_LIBRARY and KIVR_LOG_INCLUDE_DIR.")
endif()

add_library(kivr_android_log INTERFACE)
target_include_directories(kivr_android_log SYSTEM INTERFACE ${KIVR_LOG_INCLUDE_DIR})
target_link_libraries(kivr_android_log INTERFACE ${KIVR_LOG_LIBRARY})
