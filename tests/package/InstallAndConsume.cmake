# Installs the build tree into an empty prefix, then builds a host program against the
# installed files only: once through find_package(orvane) and once through pkg-config.
# Both programs are run; they exit 0 when every answer of the library is the expected one.
# Arguments: BUILD_DIR, WORK_DIR, CONSUMER_DIR (the consumer project), SOURCE (the host
# program), CXX (compiler), TOOL (path of the installed tool relative to the prefix, or empty).
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}")
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(installed include/orvane.h lib/pkgconfig/orvane.pc lib/cmake/orvane/orvaneConfig.cmake
                  lib/cmake/orvane/orvaneConfigVersion.cmake)
  if(NOT EXISTS ${prefix}/${installed})
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()
file(GLOB internal_headers ${prefix}/include/*/*.h)
if(internal_headers)
  message(FATAL_ERROR "internal headers installed: ${internal_headers}")
endif()

# CMake package. The package registry is off so that nothing but the prefix can be found.
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build -G Ninja
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DHOST_SOURCE=${SOURCE})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${WORK_DIR}/cmake-build/host)

# pkg-config.
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig
                        pkg-config --cflags --libs orvane
                OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${SOURCE} -o ${WORK_DIR}/host-pc ${flags} -Wl,-rpath,${prefix}/lib)
run(${WORK_DIR}/host-pc)

# The installed tool finds the installed library by itself.
if(TOOL)
  run(${prefix}/${TOOL} --help)
endif()
