# Compiles everything with clang's thread-safety analysis; a breach is an error. Only libc++ has a
# std::mutex that the analysis knows.

set(KIVR_THREAD_SAFETY_OPTIONS -stdlib=libc++ -D_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS
    -Wthread-safety -Werror=thread-safety)
target_compile_options(kivr_options INTERFACE ${KIVR_THREAD_SAFETY_OPTIONS})
target_link_options(kivr_options INTERFACE -stdlib=libc++)

# The check is worth nothing unless it finds an access without the lock, and only that.
foreach(access LOCKED UNLOCKED)
    try_compile(compiles ${CMAKE_BINARY_DIR}/thread_safety_${access}
        SOURCES ${PROJECT_SOURCE_DIR}/cmake/GuardedAccess.cpp
        COMPILE_DEFINITIONS -D${access} ${KIVR_THREAD_SAFETY_OPTIONS}
        CMAKE_FLAGS -DINCLUDE_DIRECTORIES=${PROJECT_SOURCE_DIR}/src
        LINK_OPTIONS -stdlib=libc++
        CXX_STANDARD 20
        CXX_STANDARD_REQUIRED ON
        OUTPUT_VARIABLE output)
    set(KIVR_${access}_COMPILES ${compiles})
    unset(compiles CACHE)
endforeach()
if(NOT KIVR_LOCKED_COMPILES)
    message(FATAL_ERROR "KIVR_THREAD_SAFETY needs clang and libc++:\n${output}")
endif()
if(KIVR_UNLOCKED_COMPILES OR NOT output MATCHES "requires holding mutex")
    message(FATAL_ERROR "The thread-safety analysis overlooks an access without the lock:\n${output}")
endif()
