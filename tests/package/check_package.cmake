# Installs the build into a fresh prefix, then builds and runs the consumer
# against that prefix alone.
file(REMOVE_RECURSE "${WORK_DIR}")
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(result)
    message(FATAL_ERROR "Failed: ${ARGN}\n${output}")
  endif()
  message("${output}")
endfunction()
run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix")
run("${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${WORK_DIR}/build" -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/build")
run("${WORK_DIR}/build/consumer")
