# What goes where when Tamber is installed: the library, its headers, the command, the manual, and the files by which
# CMake and pkg-config find it.
include(CMakePackageConfigHelpers)

# tamber_public_headers(<out> <header>...): these headers and all that they include, relative to src/.
function(tamber_public_headers out)
  set(found)
  set(pending ${ARGN})
  while(pending)
    list(POP_FRONT pending header)
    if(header IN_LIST found)
      continue()
    endif()
    list(APPEND found "${header}")
    file(STRINGS "${PROJECT_SOURCE_DIR}/src/${header}" includes REGEX "^ *#include \"")
    list(TRANSFORM includes REPLACE "^ *#include \"([^\"]*)\".*" "\\1")
    list(APPEND pending ${includes})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/src/${header}")
  endwhile()
  list(SORT found)
  set(${out} ${found} PARENT_SCOPE)
endfunction()

set(TAMBER_PUBLIC_ROOTS tamber.h)
if(EXISTS "${PROJECT_SOURCE_DIR}/src/tamber_c.h")
  list(APPEND TAMBER_PUBLIC_ROOTS tamber_c.h)
endif()
tamber_public_headers(TAMBER_PUBLIC_HEADERS ${TAMBER_PUBLIC_ROOTS})
foreach(header IN LISTS TAMBER_PUBLIC_HEADERS)
  get_filename_component(folder "${header}" DIRECTORY)
  install(FILES "src/${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tamber/${folder}" COMPONENT dev)
endforeach()

install(TARGETS KelTamber EXPORT TamberTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT lib NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev)
if(TARGET tamber)
  install(TARGETS tamber RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT command)
endif()

# A static library needs the libraries below it from whoever links it.
set(TAMBER_STATIC_MODULES)
set(TAMBER_PC_PRIVATE)
set(TAMBER_PC_CFLAGS)
if(TAMBER_LIBRARY_TYPE STREQUAL "STATIC")
  set(TAMBER_STATIC_MODULES ${TAMBER_PC_MODULES})
  list(JOIN TAMBER_PC_MODULES " " requires)
  set(TAMBER_PC_PRIVATE "Requires: ${requires}\n")
  set(TAMBER_PC_CFLAGS " -DTAMBER_STATIC")
endif()

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Tamber")
install(EXPORT TamberTargets NAMESPACE Tamber:: DESTINATION "${package_dir}" COMPONENT dev)
configure_package_config_file(cmake/TamberConfig.cmake.in "${PROJECT_BINARY_DIR}/TamberConfig.cmake"
  INSTALL_DESTINATION "${package_dir}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TamberConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TamberConfig.cmake" "${PROJECT_BINARY_DIR}/TamberConfigVersion.cmake"
  DESTINATION "${package_dir}" COMPONENT dev)

# pkg-config finds the prefix from where the file lies, so that the tree can be moved.
file(RELATIVE_PATH TAMBER_PC_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" TAMBER_PC_PREFIX "${TAMBER_PC_PREFIX}")
file(RELATIVE_PATH TAMBER_PC_LIBDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH TAMBER_PC_INCLUDEDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file(cmake/tamber.pc.in "${PROJECT_BINARY_DIR}/tamber.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tamber.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)

# tamber_install_manual(<folder> <component> [FILE...]): the manual, the examples and these files beside them.
function(tamber_install_manual folder component)
  install(FILES README.md ${ARGN} DESTINATION "${folder}" COMPONENT ${component})
  install(DIRECTORY docs/ DESTINATION "${folder}/docs" COMPONENT ${component} FILES_MATCHING PATTERN "*.md"
    PATTERN abi EXCLUDE)
  install(DIRECTORY examples DESTINATION "${folder}" COMPONENT ${component}
    PATTERN "__pycache__" EXCLUDE)
endfunction()

# Packages have these in folders of their own names, compressed: see TamberPackages.
if(NOT TAMBER_PACKAGING)
  tamber_install_manual("${CMAKE_INSTALL_DOCDIR}" dev LICENSE CHANGELOG.md SECURITY.md NOTICE.md)
  install(FILES docs/tamber.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT command)
endif()
