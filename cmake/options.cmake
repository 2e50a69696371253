# Compiler settings shared by every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(TARN_SANITIZE "" CACHE STRING "Value of -fsanitize= for every target; empty for none")
option(TARN_LIBFUZZER "Link the fuzz targets with libFuzzer (clang only)" OFF)
option(TARN_PEER_BENCH "Build the benchmark beside the peer classifier of libdpdk-dev" OFF)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# -O2 without NDEBUG: assertions are part of the product.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1")
# Most of a checked build is compiled quickly; the folders whose loops the tests spend their time in call
# tarn_hot_folder().
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g -fno-omit-frame-pointer")
macro(tarn_hot_folder)
  add_compile_options($<$<CONFIG:Debug>:-O1>)
endmacro()

add_compile_options(-Wall -Wextra -Werror -Wshadow -Wconversion -Wno-sign-conversion -Wformat=2
  -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Wundef -fno-common -fstack-protector-strong)
include_directories(${CMAKE_SOURCE_DIR})

if(TARN_SANITIZE)
  add_compile_options(-fsanitize=${TARN_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TARN_SANITIZE})
endif()

if(TARN_LIBFUZZER)
  # Coverage in all that the fuzz targets link; their main comes with the link option (cmake/targets.cmake).
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Assertions and logs name sources from the root, wherever the tree stands.
add_compile_options(-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
