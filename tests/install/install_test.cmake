# Run by ctest in script mode; see CMakeLists.txt beside it.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(f include/vrncal/vrncal.h ${LIBDIR}/libvrncal.so ${LIBDIR}/libvrncal.so.1 ${LIBDIR}/libvrncal.so.1.0.0
          ${LIBDIR}/cmake/vrncal/vrncalConfig.cmake ${LIBDIR}/pkgconfig/vrncal.pc)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "missing after install: ${f}")
  endif()
endforeach()

# 1. find_package
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${WORK_DIR}/cmake-build/consumer ${SAMPLE})
if(NOT last_output MATCHES "^32688 32820\n$")
  message(FATAL_ERROR "unexpected consumer output: ${last_output}")
endif()

# 2. pkg-config
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(pkg-config --cflags --libs vrncal)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(extra UNIX_COMMAND "${CXX_FLAGS}")
run(${CXX} -std=c++17 ${extra} ${CONSUMER_DIR}/consumer.cpp ${flags} -Wl,-rpath,${prefix}/${LIBDIR}
    -o ${WORK_DIR}/consumer-pc)
run(${WORK_DIR}/consumer-pc ${SAMPLE})
if(NOT last_output MATCHES "^32688 32820\n$")
  message(FATAL_ERROR "unexpected consumer output: ${last_output}")
endif()
