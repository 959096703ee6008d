# cmake --install and the package that find_package(Fusion CONFIG) finds. Components are what is packed apart: the library
# that programs need, what it takes to build them (development), and the command (tools, apps/CMakeLists.txt).
include(CMakePackageConfigHelpers)
include(FusionPublicHeaders)

install(
  TARGETS fusion
  EXPORT FusionTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          COMPONENT library
          NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

fusion_public_headers(FUSION_PUBLIC_HEADERS fusion_api.h fusion_c.h)
foreach(header ${FUSION_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/fusion/${folder}
          COMPONENT development)
endforeach()

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Fusion)
install(
  EXPORT FusionTargets
  NAMESPACE Fusion::
  DESTINATION ${config_dir}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/FusionConfig.cmake.in ${PROJECT_BINARY_DIR}/FusionConfig.cmake
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/FusionConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/FusionConfig.cmake ${PROJECT_BINARY_DIR}/FusionConfigVersion.cmake
        DESTINATION ${config_dir}
        COMPONENT development)

# The same for pkg-config.
if(NOT WIN32 AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH FUSION_PC_PREFIX /prefix/${pc_dir} /prefix)
  string(REGEX REPLACE "/$" "" FUSION_PC_PREFIX "${FUSION_PC_PREFIX}")
  if(FUSION_STATIC)
    set(FUSION_PC_REQUIRES "gdal spdlog")
    list(JOIN OpenMP_CXX_FLAGS " " FUSION_PC_LIBS)
  endif()
  configure_file(${CMAKE_CURRENT_LIST_DIR}/fusion.pc.in ${PROJECT_BINARY_DIR}/fusion.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/fusion.pc DESTINATION ${pc_dir} COMPONENT development)
endif()

# What a build against the stage of scripts/windows_stage needs to run anywhere: the DLLs, and where PROJ looks for it,
# its database.
if(WIN32 AND FUSION_WINDOWS_STAGE)
  file(GLOB runtime ${FUSION_WINDOWS_STAGE}/bin/*.dll)
  install(FILES ${runtime} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library)
  install(FILES ${FUSION_WINDOWS_STAGE}/share/proj/proj.db DESTINATION share/proj COMPONENT library)
endif()

# The loader looks into its own folders by a list that it does not renew by itself.
find_program(FUSION_LDCONFIG ldconfig PATHS /sbin /usr/sbin)
mark_as_advanced(FUSION_LDCONFIG)
if(FUSION_LDCONFIG AND CMAKE_HOST_SYSTEM_NAME STREQUAL "Linux" AND NOT CMAKE_CROSSCOMPILING)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/TellLoader.cmake.in ${PROJECT_BINARY_DIR}/TellLoader.cmake @ONLY)
  install(SCRIPT ${PROJECT_BINARY_DIR}/TellLoader.cmake COMPONENT library)
endif()
