# The system libraries that src/kel wraps. scripts/deps installs the packages that hold them.
# TAMBER_THIRD_PARTY: the targets to link; TAMBER_PC_MODULES: the same as pkg-config knows them.

set(TAMBER_PC_MODULES libsodium libpcre2-8 re2 sqlite3 hiredis nettle zlib libcurl libelf libedit)

macro(tamber_find_third_party)
  find_package(PkgConfig REQUIRED)
  find_package(Threads REQUIRED)
  set(TAMBER_THIRD_PARTY)
  foreach(module IN LISTS TAMBER_PC_MODULES)
    string(MAKE_C_IDENTIFIER "${module}" id)
    pkg_check_modules(${id} REQUIRED QUIET IMPORTED_TARGET GLOBAL ${module})
    list(APPEND TAMBER_THIRD_PARTY PkgConfig::${id})
  endforeach()
  list(APPEND TAMBER_THIRD_PARTY Threads::Threads ${CMAKE_DL_LIBS})
  add_library(tamber_third_party INTERFACE)
  target_link_libraries(tamber_third_party INTERFACE ${TAMBER_THIRD_PARTY})
endmacro()
