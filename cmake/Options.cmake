set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

option(QELUTILVIDEO_TESTS "Build the tests" ON)
option(QELUTILVIDEO_TOOLKIT_EXAMPLES "Build the examples that need SDL 2, GTK 3 and Qt 6" OFF)
option(QELUTILVIDEO_BENCH "Build the benchmarks" OFF)
option(QELUTILVIDEO_LIBFUZZER "Drive the fuzz targets by libFuzzer, which clang brings" OFF)
set(QELUTILVIDEO_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
                    -Wconversion -Wno-sign-conversion -Werror)
# With -O3, GCC 12 sees overlaps in std::string where there are none (its bug 105651).
add_compile_options($<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict>)
# xcb's header for keyboards, a C header, has a member called `explicit`.
add_compile_options($<$<CXX_COMPILER_ID:Clang>:-Wno-keyword-macro>)
# Each rounding step counts: a multiplication and an addition fused into one would give other results.
add_compile_options(-ffp-contract=off)
if(QELUTILVIDEO_SANITIZE)
  add_compile_options(-fsanitize=${QELUTILVIDEO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QELUTILVIDEO_SANITIZE})
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
