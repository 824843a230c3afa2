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

# Paths below the source folder are hashed relative to it, so that several checkouts share one cache. A build directory
# keeps what it began with: installing ccache later must not compile everything again.
if(NOT DEFINED CACHE{CCACHE_PROGRAM})
  find_program(CCACHE_PROGRAM ccache)
endif()
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

# What is shipped is hardened as distributions ask. The sanitizers check more than that, and FORTIFY would hide calls of
# the C library from them.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
if(NOT TAMBER_SANITIZE AND NOT TAMBER_SANITIZE_THREADS)
  target_compile_options(tamber_flags INTERFACE
    -fstack-protector-strong -Wformat -Werror=format-security -Wdate-time)
  target_link_options(tamber_flags INTERFACE LINKER:-z,relro LINKER:-z,now)
  # A level that the builder chose stays. FORTIFY needs an optimising compiler, and some define it by default.
  if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    set(optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
    target_compile_options(tamber_flags INTERFACE
      $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=2>)
  endif()
  # Control-flow protection is a feature of the processor.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    set(branch_flag -fcf-protection)
    set(return_flag -fcf-protection=return)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    set(branch_flag -mbranch-protection=standard)
    set(return_flag -mbranch-protection=pac-ret)
  endif()
  if(branch_flag)
    check_cxx_compiler_flag(${branch_flag} TAMBER_HAS_BRANCH_PROTECTION)
    if(TAMBER_HAS_BRANCH_PROTECTION)
      target_compile_options(tamber_flags INTERFACE ${branch_flag})
      # The run loop jumps from each instruction of a script to the next. A landing pad at every target makes loops 11 %
      # longer, so only returns are protected there.
      set_property(SOURCE src/machine/machinerun.cpp APPEND PROPERTY COMPILE_OPTIONS ${return_flag})
    endif()
  endif()
endif()

if(TAMBER_SANITIZE)
  set(sanitize -fsanitize=address,undefined -fsanitize=float-cast-overflow -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  # The checks that the sanitizers add make g++ take initialised variables for uninitialised ones.
  target_compile_options(tamber_flags INTERFACE ${sanitize} $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(tamber_flags INTERFACE ${sanitize})
endif()

if(TAMBER_SANITIZE_THREADS)
  # The warnings of optimised code go wrong as above.
  target_compile_options(tamber_flags INTERFACE -fsanitize=thread
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized -Wno-tsan>)
  target_link_options(tamber_flags INTERFACE -fsanitize=thread)
endif()

if(TAMBER_FUZZ)
  target_compile_options(tamber_flags INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(tamber_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

if(TAMBER_IPO)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()
