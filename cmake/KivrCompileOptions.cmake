# What every target of this project is compiled with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
find_package(Threads REQUIRED)

add_library(kivr_options INTERFACE)
# A constructor's parameter may bear the name of the field that it sets, so that GCC looks at
# locals only; Clang makes that exception by itself.
target_compile_options(kivr_options INTERFACE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>)
target_link_libraries(kivr_options INTERFACE Threads::Threads)
if(KIVR_WARNINGS_AS_ERRORS)
    target_compile_options(kivr_options INTERFACE -Werror)
endif()
if(KIVR_SANITIZE)
    target_compile_options(kivr_options INTERFACE -fsanitize=${KIVR_SANITIZE}
                           -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(kivr_options INTERFACE -fsanitize=${KIVR_SANITIZE})
endif()
if(KIVR_THREAD_SAFETY)
    include(KivrThreadSafety)
endif()
