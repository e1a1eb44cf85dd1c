# Installs the build into a fresh prefix, then configures, builds and runs
# examples/hello against it, as a host project would.
# cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... -P installcheck.cmake
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/run)
function(step)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err
                    WORKING_DIRECTORY ${WORK_DIR}/run)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "Failed: ${ARGN}\n${out}\n${err}")
    endif()
    message(STATUS "${out}")
endfunction()
step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
step(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/hello -B ${WORK_DIR}/hello
     -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=RelWithDebInfo)
step(${CMAKE_COMMAND} --build ${WORK_DIR}/hello)
step(${WORK_DIR}/hello/hello)
