# Installs the built library into a scratch prefix, then configures, builds and runs a consumer
# with find_package(muskeip), and compiles the same consumer through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
# CONSUMER_FLAGS: compiler and linker flags the consumer needs (a sanitizer build's runtime).
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${CONSUMER_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${CONSUMER_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${WORK_DIR}/consumer/consumer ${WORK_DIR}/noise.pgm)
file(READ ${WORK_DIR}/noise.pgm header LIMIT 11)
if(NOT header STREQUAL "P5\n8 8\n255\n")
    message(FATAL_ERROR "consumer wrote an unexpected header: '${header}'")
endif()

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
    file(GLOB_RECURSE pc_file ${prefix}/*/muskeip.pc)
    get_filename_component(pc_dir "${pc_file}" DIRECTORY)
    set(ENV{PKG_CONFIG_PATH} ${pc_dir})
    execute_process(COMMAND ${PKG_CONFIG} --cflags --libs muskeip
                    OUTPUT_VARIABLE flags RESULT_VARIABLE rc OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "pkg-config does not know muskeip")
    endif()
    separate_arguments(flags UNIX_COMMAND "${flags}")
    run(c++ ${CONSUMER_FLAGS} ${CONSUMER_DIR}/main.cpp ${flags} -o ${WORK_DIR}/consumer_pc)
endif()
