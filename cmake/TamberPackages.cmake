option(TAMBER_PACKAGING "Install what Debian packages need beside the rest" OFF)

# Debian packages: the library, what programs are built with, and the command. scripts/package makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tamber)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "The Tamber developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Embeddable script engine")
set(CPACK_PACKAGE_DESCRIPTION "Tamber is a small typed scripting language and the engine that runs it.
Programs load it as a library; a command runs scripts from a shell.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL lib dev command)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_LIB_PACKAGE_NAME libkeltamber${TAMBER_ABI})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIB_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIB_PACKAGE_GENERATE_SHLIBS ON)
# Opened when a script first needs them, so that no tool can see them.
if(TAMBER_PACKAGING)
  list(TRANSFORM TAMBER_OPENED_FILES PREPEND "*/lib/${CMAKE_LIBRARY_ARCHITECTURE}/" OUTPUT_VARIABLE patterns)
  execute_process(COMMAND dpkg-query --search ${patterns} OUTPUT_VARIABLE owners COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^\n]+" owners "${owners}")
  list(TRANSFORM owners REPLACE ":.*" "")
  list(REMOVE_DUPLICATES owners)
  list(JOIN owners ", " CPACK_DEBIAN_LIB_PACKAGE_DEPENDS)
endif()
set(CPACK_DEBIAN_LIB_DESCRIPTION "Embeddable script engine, shared library")

set(own "libkeltamber${TAMBER_ABI} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkeltamber-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${own}")
set(CPACK_DEBIAN_DEV_DESCRIPTION "Embeddable script engine, headers, manual and examples")

set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME tamber)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION interpreters)
set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS "${own}, libc6, libstdc++6, libgcc-s1")
set(CPACK_DEBIAN_COMMAND_DESCRIPTION "Embeddable script engine, command that runs scripts")
include(CPack)

# A package states its licence where Debian looks for it.
if(TAMBER_PACKAGING)
  foreach(component LIB DEV COMMAND)
    string(TOLOWER ${component} name)
    install(FILES LICENSE DESTINATION "share/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME}" RENAME copyright
      COMPONENT ${name})
  endforeach()
endif()
