# Installs the build, configures and builds the example against it, fuses a sample scene with it.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix --config ${CONFIG})
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${EXAMPLE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/prefix/bin/fusion sample ${WORK_DIR}/scene --size 128 --quiet)
run(${WORK_DIR}/build/brovey ${WORK_DIR}/scene/pan.tif ${WORK_DIR}/scene/ms.tif ${WORK_DIR}/fused.tif)
if(NOT EXISTS ${WORK_DIR}/fused.tif)
  message(FATAL_ERROR "the example left no fused image")
endif()
