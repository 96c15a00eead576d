# Script mode: see CMakeLists.txt.
file(REMOVE_RECURSE ${SCRATCH})
set(prefix ${SCRATCH}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# Only the public interface leaves the libraries (the rule is in check_exported_symbols.py).
set(check ${CMAKE_CURRENT_LIST_DIR}/check_exported_symbols.py)
set(common_headers ${prefix}/include/marlockCommon:MARLOCK_COMMON_EXPORT)
run(python3 ${check} ${prefix}/${LIBDIR}/libmarlockCommon.so ${common_headers})
run(python3 ${check} ${prefix}/${LIBDIR}/libmarlockCompanionCommon.so
    ${prefix}/include/marlockCompanionCommon:MCC_EXPORT ${common_headers})

# find_package()
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${SCRATCH}/cmake-consumer -G Ninja -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${SCRATCH}/cmake-consumer)
set(ENV{LD_LIBRARY_PATH} "${prefix}/lib:${prefix}/lib/x86_64-linux-gnu:$ENV{LD_LIBRARY_PATH}")
run(${SCRATCH}/cmake-consumer/consumer)
if(NOT last_output MATCHES "consumer ok [0-9]+\\.[0-9]+\\.[0-9]+ org.marlock.companion.desktopapp")
    message(FATAL_ERROR "unexpected consumer output: ${last_output}")
endif()

# pkg-config
file(GLOB pcdirs ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
string(REPLACE ";" ":" pcpath "${pcdirs}")
set(ENV{PKG_CONFIG_PATH} "${pcpath}")
run(pkg-config --cflags --libs marlockCompanionCommon)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++20 -fPIC ${CONSUMER_DIR}/main.cpp -o ${SCRATCH}/pc-consumer ${flags})
run(${SCRATCH}/pc-consumer)
if(NOT last_output MATCHES "consumer ok")
    message(FATAL_ERROR "unexpected pkg-config consumer output: ${last_output}")
endif()
