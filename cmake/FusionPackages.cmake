# What cpack makes: the Debian packages libfusion1, libfusion-dev, fusion-tools and python3-rsfusion (where the Python
# package is built), and the archive of the sources.
# scripts/package builds them as they are to be shipped.
set(CPACK_PACKAGE_VENDOR "The Fusion maintainers")
set(CPACK_PACKAGE_CONTACT "Fusion maintainers <maintainers@fusion.invalid>" CACHE STRING "Whom the packages name as maintainer")
set(CPACK_PACKAGE_NAME fusion)
# Each package has a summary of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)

# Of the sources all but what belongs to a clone or was built in it. Patterns match whole paths, the clone's own too.
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME fusion-${PROJECT_VERSION})
string(REGEX REPLACE "([][+.*()^$?|\\\\{}])" "\\\\\\1" source_pattern "${PROJECT_SOURCE_DIR}")
set(CPACK_SOURCE_IGNORE_FILES "^${source_pattern}/(build[^/]*|demo|\\.cache|\\.git)(/|$)" "/__pycache__(/|$)")

# For Windows one archive of all that there is, to be unpacked anywhere.
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME fusion-${PROJECT_VERSION}-win64)
  include(CPack)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/DebianFiles.cmake)
set(CPACK_FUSION_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(about "Takes a high-resolution panchromatic raster and a coarser multispectral
raster of the same ground and writes a multispectral raster with the
detail of the first, by one of eight methods, for satellite and aerial
images in all formats that GDAL reads.
")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libfusion${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# Cpack's own look at dependencies would have scripts call ldconfig, in the place of the trigger.
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/DebianDependencies.cmake)
set(CPACK_FUSION_LIBRARY ${PROJECT_BINARY_DIR}/libfusion.so)
set(CPACK_FUSION_TOOLS ${PROJECT_BINARY_DIR}/apps/fusion)
set(CPACK_FUSION_SHLIBDEPS_DIR ${PROJECT_BINARY_DIR}/shlibdeps)
file(CONFIGURE OUTPUT ${CPACK_FUSION_SHLIBDEPS_DIR}/debian/control CONTENT "Source: fusion\n\nPackage: fusion\nArchitecture: any\n")
file(
  CONFIGURE
  OUTPUT ${PROJECT_BINARY_DIR}/shlibs
  CONTENT "libfusion ${PROJECT_VERSION_MAJOR} libfusion${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers ${PROJECT_BINARY_DIR}/shlibs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "pan-sharpening of satellite and aerial images - library\n${about}
This package has the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libfusion-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${version})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "pan-sharpening of satellite and aerial images - development\n${about}
This package has the headers for C++ and C, the files for CMake and
pkg-config, and examples.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME fusion-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "pan-sharpening of satellite and aerial images - command\n${about}
This package has the command, its manual page and what shells complete its
arguments by.")

if(TARGET rsfusion_core)
  list(APPEND CPACK_COMPONENTS_ALL python)
  math(EXPR next_minor "${Python_VERSION_MINOR} + 1")
  set(CPACK_FUSION_PYTHON ${PROJECT_BINARY_DIR}/python/rsfusion/_core${rsfusion_suffix})
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-rsfusion)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_FUSION_PYTHON_DEPENDS
      "python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), python3 (<< ${Python_VERSION_MAJOR}.${next_minor}), python3-numpy, ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${version})"
  )
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-rasterio, python3-xarray, python3-distributed, gdal-bin")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/python/postinst
                                                ${CMAKE_CURRENT_LIST_DIR}/debian/python/prerm)
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "pan-sharpening of satellite and aerial images - Python\n${about}
This package has the Python package rsfusion, for files, NumPy arrays,
rasterio datasets and xarray DataArrays.")
endif()

include(CPack)
