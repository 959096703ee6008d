# Read by cpack before it packs: what the shared library needs of other packages.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()
execute_process(
  COMMAND dpkg-shlibdeps -O -e${CPACK_FUSION_LIBRARY}
  WORKING_DIRECTORY ${CPACK_FUSION_SHLIBDEPS_DIR}
  OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE ".*shlibs:Depends=" "" CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "${found}")
