cmake_minimum_required(VERSION 3.22)
# Installs the build, or one with a static library made from STATIC_FROM, configures and builds the example against it,
# fuses a sample scene with it.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
if(STATIC_FROM)
  set(BUILD_DIR ${STATIC_BUILD})
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${STATIC_FROM} -B ${BUILD_DIR} -DCMAKE_CXX_COMPILER=${COMPILER}
      -DCMAKE_BUILD_TYPE=${CONFIG} -DFUSION_WERROR=${WERROR} -DFUSION_STATIC=ON -DFUSION_BUILD_TESTS=OFF -DCMAKE_UNITY_BUILD=${UNITY})
  run(${CMAKE_COMMAND} --build ${BUILD_DIR} --config ${CONFIG} --parallel 2)
endif()
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix --config ${CONFIG})
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${EXAMPLE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/prefix/bin/fusion sample ${WORK_DIR}/scene --size 128 --quiet)
run(${WORK_DIR}/build/brovey ${WORK_DIR}/scene/pan.tif ${WORK_DIR}/scene/ms.tif ${WORK_DIR}/fused.tif)
if(NOT EXISTS ${WORK_DIR}/fused.tif)
  message(FATAL_ERROR "the example left no fused image")
endif()
# Whole runs, from C++ and from C: the same bytes, at the same time.
set(ENV{SOURCE_DATE_EPOCH} 1700000000)
foreach(example fuse fuse_c)
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${EXAMPLE_DIR}/../${example} -B ${WORK_DIR}/${example}
      -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=Release)
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/${example})
  run(${WORK_DIR}/${example}/fuse ${WORK_DIR}/scene/pan.tif ${WORK_DIR}/scene/ms.tif ${WORK_DIR}/${example}.tif)
endforeach()
run(${CMAKE_COMMAND} -E compare_files ${WORK_DIR}/fuse.tif ${WORK_DIR}/fuse_c.tif)
# Methods written outside the library.
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${EXAMPLE_DIR}/../own_method -B ${WORK_DIR}/own
    -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/own)
run(${WORK_DIR}/own/own_method ${WORK_DIR}/scene/pan.tif ${WORK_DIR}/scene/ms.tif ${WORK_DIR}/rows.tif
    ${WORK_DIR}/blocks.tif)

# Nothing is installed but what fusion_api.h and fusion_c.h lead to, by a closure of its own.
set(include ${WORK_DIR}/prefix/include/fusion)
set(open fusion_api.h fusion_c.h)
set(reached)
while(open)
  list(POP_FRONT open header)
  if(NOT header IN_LIST reached)
    list(APPEND reached ${header})
    file(STRINGS ${include}/${header} lines REGEX "^#include \"")
    foreach(line ${lines})
      string(REGEX MATCH "\"(.*)\"" quoted ${line})
      list(APPEND open ${CMAKE_MATCH_1})
    endforeach()
  endif()
endwhile()
file(GLOB_RECURSE installed RELATIVE ${include} ${include}/*)
list(SORT reached)
list(SORT installed)
if(NOT reached STREQUAL installed)
  message(FATAL_ERROR "installed: ${installed}\nreached from fusion_api.h: ${reached}")
endif()

file(GLOB_RECURSE shared ${WORK_DIR}/prefix/libfusion.so* ${WORK_DIR}/prefix/*fusion.dll)
if(STATIC_FROM AND shared)
  message(FATAL_ERROR "a static build installed ${shared}")
endif()

# The same program by pkg-config alone.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB_RECURSE pc ${WORK_DIR}/prefix/fusion.pc)
  get_filename_component(pc_dir "${pc}" DIRECTORY)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} ${PKG_CONFIG} --cflags --libs fusion
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  get_filename_component(libraries ${pc_dir} DIRECTORY)
  run(${COMPILER} ${EXAMPLE_DIR}/main.cpp ${flags} -Wl,-rpath,${libraries} -o ${WORK_DIR}/plain)
  run(${WORK_DIR}/plain ${WORK_DIR}/scene/pan.tif ${WORK_DIR}/scene/ms.tif ${WORK_DIR}/plain.tif)
else()
  message("pkg-config is not installed: its file is not tried")
endif()
