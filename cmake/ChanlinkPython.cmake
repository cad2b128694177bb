# Decides CHANLINK_BUILD_PYTHON and finds what the Python module needs.
#
# The module is built for one interpreter, and its tests run with that same
# one. -DPython3_EXECUTABLE=... chooses it; otherwise the first python3 on
# PATH that has pybind11's Python package is taken (Debian's python3 with
# python3-pybind11), so that a second Python earlier on PATH without pybind11
# is passed over. Without such an interpreter, FindPython3's own choice and
# the pybind11 CMake package (pybind11-dev) are used.

set(chanlink_python_default OFF)
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CROSSCOMPILING
        AND NOT (DEFINED CHANLINK_BUILD_PYTHON AND NOT CHANLINK_BUILD_PYTHON))
    set(chanlink_pybind11_hint "")
    if(NOT Python3_EXECUTABLE)
        string(REPLACE ":" ";" chanlink_path_dirs "$ENV{PATH}")
        foreach(dir IN LISTS chanlink_path_dirs)
            if(dir AND EXISTS "${dir}/python3")
                execute_process(COMMAND "${dir}/python3" -c "import pybind11; print(pybind11.get_cmake_dir())"
                    RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_QUIET
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
                if(result EQUAL 0)
                    set(Python3_EXECUTABLE "${dir}/python3" CACHE FILEPATH "Python the module is built for")
                    set(chanlink_pybind11_hint "${out}")
                    break()
                endif()
            endif()
        endforeach()
    else()
        execute_process(COMMAND "${Python3_EXECUTABLE}" -c "import pybind11; print(pybind11.get_cmake_dir())"
            RESULT_VARIABLE result OUTPUT_VARIABLE chanlink_pybind11_hint ERROR_QUIET
            OUTPUT_STRIP_TRAILING_WHITESPACE)
    endif()
    find_package(Python3 COMPONENTS Interpreter Development.Module QUIET)
    if(Python3_FOUND)
        find_package(pybind11 CONFIG QUIET HINTS ${chanlink_pybind11_hint})
    endif()
    if(Python3_FOUND AND pybind11_FOUND)
        set(chanlink_python_default ON)
    endif()
endif()

if(NOT DEFINED CHANLINK_BUILD_PYTHON AND NOT chanlink_python_default)
    # Off only because pybind11 is missing: not cached, so that the next
    # configure of this build directory looks again (after pybind11 has been
    # installed, say). -DCHANLINK_BUILD_PYTHON=OFF is cached and kept.
    set(CHANLINK_BUILD_PYTHON OFF)
    if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CROSSCOMPILING)
        message(STATUS "chanlink Python module not built: no Python 3 with its headers and "
            "pybind11 (pybind11-dev python3-pybind11 python3-dev); looked for at every configure")
    endif()
else()
    option(CHANLINK_BUILD_PYTHON
        "Build the Python module (needs pybind11-dev python3-pybind11 python3-dev)"
        ${chanlink_python_default})
endif()

if(CHANLINK_BUILD_PYTHON AND NOT (Python3_FOUND AND pybind11_FOUND))
    message(FATAL_ERROR "CHANLINK_BUILD_PYTHON needs Python 3 with its headers and pybind11: "
        "sudo apt-get install pybind11-dev python3-pybind11 python3-dev")
endif()
if(CHANLINK_BUILD_PYTHON)
    # Where the interpreter finds it: Debian's python3 reads /usr/lib/python3/
    # dist-packages and /usr/local/lib/python3.X/dist-packages; others read
    # site-packages.
    execute_process(COMMAND "${Python3_EXECUTABLE}" -c
            "import sysconfig; print('deb_system' in sysconfig.get_scheme_names())"
        OUTPUT_VARIABLE debian_python OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    set(python_short "python${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}")
    if(debian_python STREQUAL "True" AND CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(python_dir "lib/python3/dist-packages")
    elseif(debian_python STREQUAL "True")
        set(python_dir "lib/${python_short}/dist-packages")
    else()
        set(python_dir "lib/${python_short}/site-packages")
    endif()
    set(CHANLINK_PYTHON_INSTALL_DIR "${python_dir}" CACHE STRING
        "Directory, relative to the install prefix, that receives the Python package")
    message(STATUS "chanlink Python module for ${Python3_EXECUTABLE} (${Python3_VERSION}), pybind11 ${pybind11_VERSION}")
endif()
