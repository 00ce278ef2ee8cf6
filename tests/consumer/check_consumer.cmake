file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
# A sanitized library needs a consumer built with the same runtime.
set(flags "")
if(SANITIZE)
    set(flags "-DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZE}" "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE}")
endif()
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer/project -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} ${flags})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR NOT out MATCHES "consumer ok")
    message(FATAL_ERROR "consumer run failed (${rc}): ${out} ${err}")
endif()
# The pkg-config file must describe the same installation.
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
find_program(PKG_CONFIG pkg-config REQUIRED)
run(${PKG_CONFIG} --exists ZrUtils)
message(STATUS "consumer ok")
