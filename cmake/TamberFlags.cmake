# What every target is compiled with: tamber_flags.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
# A build tree can be moved: binaries find the library relative to themselves.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

# Paths below the source folder are hashed relative to it, so that several checkouts share one cache.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
    "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${CCACHE_PROGRAM}")
endif()

add_library(tamber_flags INTERFACE)
target_include_directories(tamber_flags INTERFACE "${PROJECT_SOURCE_DIR}/src")
target_compile_options(tamber_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${TAMBER_WERROR}>:-Werror>
  # A script's char is signed whatever the machine, and a sum of products is rounded after each step everywhere.
  -fsigned-char -ffp-contract=off
  # Calls between the library's own exported functions may be inlined; nobody interposes them.
  -fno-semantic-interposition)
target_link_options(tamber_flags INTERFACE LINKER:--as-needed)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 sees overlapping copies in every `"text" + std::string` (its bug 105651).
  target_compile_options(tamber_flags INTERFACE -Wno-restrict)
endif()

find_program(MOLD_PROGRAM mold)
if(MOLD_PROGRAM AND NOT TAMBER_IPO)
  target_link_options(tamber_flags INTERFACE -fuse-ld=mold)
endif()

if(TAMBER_SANITIZE)
  set(sanitize -fsanitize=address,undefined -fsanitize=float-cast-overflow -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  # The checks that the sanitizers add make g++ take initialised variables for uninitialised ones.
  target_compile_options(tamber_flags INTERFACE ${sanitize} $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(tamber_flags INTERFACE ${sanitize})
endif()

if(TAMBER_FUZZ)
  target_compile_options(tamber_flags INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(tamber_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

if(TAMBER_IPO)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()
