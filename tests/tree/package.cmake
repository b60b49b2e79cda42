# Installs the built library, and builds and runs a user's project with the installed package and warnings as errors. Run with
# BUILD (the build tree), WORK (a folder for temporary files), PROGRAM (the user's source) and COMPILER.
cmake_minimum_required(VERSION 3.22)

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/../package -B ${WORK}/build -D CMAKE_PREFIX_PATH=${WORK}/prefix
    -D PROGRAM=${PROGRAM} -D CMAKE_CXX_COMPILER=${COMPILER})
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${CMAKE_COMMAND} --build ${WORK}/build --target run)

file(GLOB leftovers ${WORK}/prefix/include/support/*)
list(FILTER leftovers EXCLUDE REGEX "\\.h$")
if(leftovers)
  message(FATAL_ERROR "installed, but no header: ${leftovers}")
endif()
