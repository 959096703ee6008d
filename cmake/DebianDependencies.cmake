# Read by cpack before it packs: what the library and the command need of other packages.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()
foreach(component LIBRARY TOOLS PYTHON)
  if(NOT CPACK_FUSION_${component})
    continue()
  endif()
  # That on the library of this build, which no package has yet, is told apart.
  set(own)
  if(component STREQUAL PYTHON)
    set(own --ignore-missing-info)
  endif()
  execute_process(
    COMMAND dpkg-shlibdeps -O ${own} -e${CPACK_FUSION_${component}}
    WORKING_DIRECTORY ${CPACK_FUSION_SHLIBDEPS_DIR}
    OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE ".*shlibs:Depends=" "" CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "${found}")
endforeach()
string(APPEND CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS ", ${CPACK_FUSION_PYTHON_DEPENDS}")
