# The system libraries that src/kel wraps. scripts/deps installs the packages that hold them.

function(tamber_find_third_party)
  find_package(PkgConfig REQUIRED)
  find_package(Threads REQUIRED)
  add_library(tamber_third_party INTERFACE)
  foreach(module libsodium libpcre2-8 re2 sqlite3 hiredis nettle zlib libcurl libelf libedit)
    string(MAKE_C_IDENTIFIER "${module}" id)
    pkg_check_modules(${id} REQUIRED IMPORTED_TARGET GLOBAL ${module})
    target_link_libraries(tamber_third_party INTERFACE PkgConfig::${id})
  endforeach()
  target_link_libraries(tamber_third_party INTERFACE Threads::Threads ${CMAKE_DL_LIBS})
endfunction()
