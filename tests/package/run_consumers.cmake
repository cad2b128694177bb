# Installs the built library into a fresh prefix and builds three consumers:
# one through find_package, one through pkg-config, one through add_subdirectory.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "Command failed (${result}): ${ARGN}\n${out}\n${err}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install "${BINARY_DIR}" --prefix "${prefix}")

# The Python package, with its stubs, where the interpreter looks.
if(PYTHON)
    set(ENV{PYTHONPATH} "${prefix}/${PYTHON_DIR}")
    run(${PYTHON} -c "import chanlink, pathlib; assert chanlink.reason_name(17) == 'UnknownChannel'; \
assert pathlib.Path(chanlink.__file__).with_name('__init__.pyi').is_file()")
endif()

foreach(mode IN ITEMS find_package add_subdirectory)
    set(build "${WORK_DIR}/${mode}")
    run(${CMAKE_COMMAND} -S "${CONSUMER_DIR}" -B "${build}" -G "${GENERATOR}"
        -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
        -DCMAKE_PREFIX_PATH=${prefix}
        -DCONSUMER_MODE=${mode}
        -DCONSUMER_TLS=${TLS}
        -DCHANLINK_SOURCE_DIR=${SOURCE_DIR})
    run(${CMAKE_COMMAND} --build "${build}")
    run("${build}/consumer")
endforeach()

if(NOT EXISTS "${prefix}/share/chanlink/wireshark/chanlink.lua")
    message(FATAL_ERROR "the dissector is not installed under share/chanlink/wireshark")
endif()

# pkg-config, with the compiler driven by hand as a Makefile user would.
set(module chanlink)
if(TLS)
    set(module chanlink-tls)
    set(define -DCONSUMER_TLS)
endif()
find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB_RECURSE pc_files "${prefix}/*/chanlink.pc")
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs ${module}
    RESULT_VARIABLE result OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know ${module}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX_COMPILER} -std=c++17 ${define} "${CONSUMER_DIR}/main.cpp" ${flags} -o "${WORK_DIR}/pkgconfig-consumer")
run("${WORK_DIR}/pkgconfig-consumer")
message(STATUS "find_package, add_subdirectory and pkg-config consumers built and ran")
