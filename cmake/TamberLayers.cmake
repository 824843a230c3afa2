# The folders of src/, lowest layer first, and what each may include and is tested with.
set(TAMBER_LAYERS kel text values engine functions machine expr statements frontend context modules host)

# tamber_layers_below(<out> <layer>): the layers that this one may include: those before it. What runs knows nothing of
# the text of scripts; only prototypes are read with the tokeniser.
function(tamber_layers_below out layer)
  set(below)
  foreach(other IN LISTS TAMBER_LAYERS)
    if(other STREQUAL layer)
      break()
    endif()
    list(APPEND below ${other})
  endforeach()
  if(layer MATCHES "^(values|engine|machine)$")
    list(REMOVE_ITEM below text)
  endif()
  set(${out} ${below} PARENT_SCOPE)
endfunction()

# tamber_check_layer(<source folder> <layer>): fails when a file of the layer includes what it may not.
function(tamber_check_layer source layer)
  tamber_layers_below(allowed ${layer})
  list(APPEND allowed ${layer})
  list(JOIN allowed ", " known)
  list(JOIN allowed "|" folders)
  # The C interface has its header beside tamber.h.
  set(permitted "^((${folders})/|tamber_c\\.h$)")
  file(GLOB_RECURSE files RELATIVE "${source}" "${source}/${layer}/*")
  set(wrong)
  foreach(file IN LISTS files)
    file(STRINGS "${source}/${file}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
    foreach(include IN LISTS includes)
      string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*" "\\1" header "${include}")
      if(NOT header MATCHES "${permitted}" OR header MATCHES "\\.\\.")
        string(APPEND wrong "\n  ${file} includes ${header}")
      endif()
    endforeach()
  endforeach()
  if(wrong)
    message(FATAL_ERROR "${layer} may include only ${known}:${wrong}")
  endif()
endfunction()

# As a script, one step of the build: cmake -DSOURCE=src -DLAYER=values -DSTAMP=file -P TamberLayers.cmake
if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  cmake_minimum_required(VERSION 3.25)
  tamber_check_layer("${SOURCE}" "${LAYER}")
  file(TOUCH "${STAMP}")
endif()
