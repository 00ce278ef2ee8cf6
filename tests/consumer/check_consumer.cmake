# Installs one or more builds of the library into one scratch prefix, then builds and
# runs a project outside the source tree against each installed package: once with
# find_package and once with the compiler flags of its pkg-config file.
#   BUILD_DIR:       the build to install.
#   OTHER_BUILD_DIR: optional, a build against the other Qt major version, installed
#                    into the same prefix: neither install may touch a file of the other.
cmake_minimum_required(VERSION 3.16)
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
set(libdir ${prefix}/lib)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}")
    endif()
endfunction()

function(run_consumer program package)
    execute_process(COMMAND ${program} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0 OR NOT out MATCHES "consumer ok")
        message(FATAL_ERROR "${package} consumer ${program} failed (${rc}): ${out} ${err}")
    endif()
endfunction()

find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
set(installed "")
set(packages "")
foreach(build ${BUILD_DIR} ${OTHER_BUILD_DIR})
    load_cache(${build} READ_WITH_PREFIX build_ ZRUTILS_QT_MAJOR ZRUTILS_SANITIZE CMAKE_CXX_COMPILER)
    if(build_ZRUTILS_QT_MAJOR STREQUAL "6")
        set(package ZrUtils6)
    else()
        set(package ZrUtils)
    endif()
    if(package IN_LIST packages)
        message(FATAL_ERROR "${BUILD_DIR} and ${OTHER_BUILD_DIR} are both builds of ${package}")
    endif()
    list(APPEND packages ${package})

    execute_process(COMMAND ${CMAKE_COMMAND} --install ${build} --prefix ${prefix}
        RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "install of ${build} failed:\n${out}")
    endif()
    # "Installing" and "Up-to-date" alike: a path another build installed is a clash.
    string(REGEX MATCHALL "-- (Installing|Up-to-date): [^\n]*" lines "${out}")
    set(files "")
    foreach(line ${lines})
        string(REGEX REPLACE "^-- [A-Za-z-]+: " "" file "${line}")
        if(file IN_LIST installed)
            message(FATAL_ERROR "${package} installs over a file of another build: ${file}")
        endif()
        list(APPEND files ${file})
    endforeach()
    list(APPEND installed ${files})

    # A sanitized library needs a consumer built with the same runtime.
    set(flags "")
    if(build_ZRUTILS_SANITIZE)
        set(flags "-fsanitize=${build_ZRUTILS_SANITIZE}")
    endif()
    set(work ${WORK_DIR}/${package})
    run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer/project -B ${work} -G ${GENERATOR}
        -DCMAKE_CXX_COMPILER=${build_CMAKE_CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix}
        -DZRUTILS_PACKAGE=${package} "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}")
    run(${CMAKE_COMMAND} --build ${work})
    run_consumer(${work}/consumer ${package})

    # The pkg-config file must describe the same installation.
    execute_process(COMMAND ${PKG_CONFIG} --cflags --libs ${package}
        RESULT_VARIABLE rc OUTPUT_VARIABLE pc_flags ERROR_VARIABLE err OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "pkg-config ${package}: ${err}")
    endif()
    separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
    # Debian's Qt 5 is built for position-independent executables but its .pc files don't say so.
    run(${build_CMAKE_CXX_COMPILER} -std=c++17 -fPIC ${flags} -DZRUTILS_PACKAGE_FILE="lib${package}.so"
        ${SOURCE_DIR}/tests/consumer/project/main.cpp ${pc_flags} -Wl,-rpath,${libdir}
        -o ${work}/consumer-pkgconfig)
    run_consumer(${work}/consumer-pkgconfig ${package})
endforeach()
message(STATUS "consumers of ${packages} ok")
