# The system libraries that src/kel wraps. scripts/deps installs the packages that hold them.
# TAMBER_THIRD_PARTY: the targets to link; TAMBER_PC_MODULES: the same as pkg-config knows them.
# TAMBER_OPENED_FILES: the names of the libraries that must be there when Tamber runs, without being linked.

set(TAMBER_PC_MODULES re2)
# Opened when a script first needs them, by the names that the linker would have noted.
set(TAMBER_OPENED_MODULES libsodium libpcre2-8 sqlite3 hiredis nettle zlib libcurl libelf)

# tamber_read_soname(<out> <file>): the name by which programs that are linked with a library ask for it.
function(tamber_read_soname out file)
  execute_process(COMMAND "${CMAKE_READELF}" -d "${file}" OUTPUT_VARIABLE entries COMMAND_ERROR_IS_FATAL ANY)
  if(NOT entries MATCHES "SONAME[^\n]*\\[([^]]+)\\]")
    message(FATAL_ERROR "${file} has no name of its own; is it a shared library?")
  endif()
  set(${out} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

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
  set(TAMBER_OPENED_FILES)
  foreach(module IN LISTS TAMBER_OPENED_MODULES)
    string(MAKE_C_IDENTIFIER "${module}" id)
    pkg_check_modules(${id} REQUIRED QUIET IMPORTED_TARGET GLOBAL ${module})
    list(GET ${id}_LINK_LIBRARIES 0 file)
    tamber_read_soname(soname "${file}")
    list(APPEND TAMBER_OPENED_FILES "${soname}")
    string(TOUPPER "KEL_SONAME_${id}" macro)
    target_include_directories(tamber_third_party SYSTEM INTERFACE ${${id}_INCLUDE_DIRS})
    target_compile_definitions(tamber_third_party INTERFACE "${macro}=\"${soname}\"")
  endforeach()
endmacro()
