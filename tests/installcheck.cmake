# Installs the build into a fresh prefix, then builds examples/hello against it
# twice, as host projects would: with find_package(TWBaseLib) and with
# pkg-config. Runs both, and the installed twtool, which must find the
# installed library by itself.
# cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... -DCXX=... -P installcheck.cmake
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/run)
function(step)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err
                    WORKING_DIRECTORY ${WORK_DIR}/run)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "Failed: ${ARGN}\n${out}\n${err}")
    endif()
    set(step_output "${out}" PARENT_SCOPE)
    message(STATUS "${out}")
endfunction()
set(prefix ${WORK_DIR}/prefix)
step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# No library path is set: the installed program finds its library by its run path.
step(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/bin/twtool --help)
if(NOT step_output MATCHES "Commands:")
    message(FATAL_ERROR "The installed twtool printed no help:\n${step_output}")
endif()

step(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/hello -B ${WORK_DIR}/hello
     -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=RelWithDebInfo)
step(${CMAKE_COMMAND} --build ${WORK_DIR}/hello)
step(${WORK_DIR}/hello/hello)

# The same program through pkg-config, with the library's own .pc file.
file(GLOB_RECURSE pc_files ${prefix}/*/twbaselib.pc)
if(NOT pc_files)
    message(FATAL_ERROR "No twbaselib.pc was installed under ${prefix}")
endif()
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
find_program(PKG_CONFIG pkg-config REQUIRED)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs twbaselib OUTPUT_VARIABLE flags RESULT_VARIABLE result
                OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND ${PKG_CONFIG} --variable=libdir twbaselib OUTPUT_VARIABLE libdir
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know twbaselib")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
step(${CXX} -std=c++17 -fPIC ${SOURCE_DIR}/examples/hello/main.cpp ${flags} -Wl,-rpath,${libdir}
     -o ${WORK_DIR}/hello-pkgconfig)
file(REMOVE_RECURSE ${WORK_DIR}/run)
file(MAKE_DIRECTORY ${WORK_DIR}/run)
step(${WORK_DIR}/hello-pkgconfig)
