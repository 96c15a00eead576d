# Script mode: see CMakeLists.txt.
file(REMOVE_RECURSE ${SCRATCH})
set(prefix ${SCRATCH}/prefix)
# Whatever is installed has to start on its own run paths.
unset(ENV{LD_LIBRARY_PATH})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

function(expect_output pattern)
    if(NOT last_output MATCHES "${pattern}")
        message(FATAL_ERROR "expected output matching '${pattern}', got: ${last_output}")
    endif()
endfunction()

# check_run_paths(<root> RELATIVE|NONE): the run paths of the programs and libraries installed
# under <root> are all relative to the file's own folder ($ORIGIN…), so no build-tree or other
# absolute path remains, or there are none at all.
function(check_run_paths root expected)
    file(GLOB files ${root}/bin/* ${root}/${LIBDIR}/lib*.so.*.*.*)
    if(NOT files)
        message(FATAL_ERROR "nothing installed under ${root}")
    endif()
    foreach(file IN LISTS files)
        run(readelf -d ${file})
        string(REGEX MATCHALL "\\((RUNPATH|RPATH)\\)[^\n]*" entries "${last_output}")
        if(expected STREQUAL "NONE" AND entries)
            message(FATAL_ERROR "${file} carries a run path in a system prefix: ${entries}")
        endif()
        foreach(entry IN LISTS entries)
            string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" paths "${entry}")
            string(REPLACE ":" ";" paths "${paths}")
            foreach(path IN LISTS paths)
                if(NOT path MATCHES "^\\$ORIGIN(/|$)")
                    message(FATAL_ERROR "${file} has a run path that is not relative to it: ${path}")
                endif()
            endforeach()
        endforeach()
    endforeach()
endfunction()

# The installed command line, with the RFC 6238 SHA1 test key at T = 59 s.
function(run_installed_marlock root)
    run(${root}/bin/marlock code --time 59
        "otpauth://totp/RFC:6238?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&digits=8")
    expect_output("^94287082\n$")
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# Only the public interface leaves the libraries (the rule is in check_exported_symbols.py).
set(check ${CMAKE_CURRENT_LIST_DIR}/check_exported_symbols.py)
set(common_headers ${prefix}/include/marlockCommon:MARLOCK_COMMON_EXPORT)
run(python3 ${check} ${prefix}/${LIBDIR}/libmarlockCommon.so ${common_headers})
run(python3 ${check} ${prefix}/${LIBDIR}/libmarlockCompanionCommon.so
    ${prefix}/include/marlockCompanionCommon:MCC_EXPORT ${common_headers})

check_run_paths(${prefix} RELATIVE)
# Menu entries and their icon, where desktops look for them.
foreach(file share/applications/org.marlock.companion.desktop share/applications/org.marlock.companion.today.desktop
             share/icons/hicolor/scalable/apps/org.marlock.companion.svg)
    if(NOT EXISTS ${prefix}/${file})
        message(FATAL_ERROR "not installed: ${file}")
    endif()
endforeach()
run_installed_marlock(${prefix})

# The tree keeps working when moved elsewhere, at another depth.
set(moved ${SCRATCH}/moved/elsewhere)
file(MAKE_DIRECTORY ${SCRATCH}/moved)
file(RENAME ${prefix} ${moved})
run_installed_marlock(${moved})
# The companion library finds libmarlockCommon by its own run path, whoever loads it.
run(python3 -c "import ctypes, sys; ctypes.CDLL(sys.argv[1])"
    ${moved}/${LIBDIR}/libmarlockCompanionCommon.so)

# A host program built with find_package(), run as it is built.
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${SCRATCH}/cmake-consumer -G Ninja -DCMAKE_PREFIX_PATH=${moved}
    -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${SCRATCH}/cmake-consumer)
run(${SCRATCH}/cmake-consumer/consumer)
expect_output("consumer ok [0-9]+\\.[0-9]+\\.[0-9]+ org.marlock.companion.desktopapp")

# One built with pkg-config, which gives no run path: the host adds the library folder.
file(GLOB pcdirs ${moved}/lib*/pkgconfig ${moved}/lib/*/pkgconfig)
string(REPLACE ";" ":" pcpath "${pcdirs}")
set(ENV{PKG_CONFIG_PATH} "${pcpath}")
run(pkg-config --variable=libdir marlockCompanionCommon)
string(STRIP "${last_output}" pc_libdir)
run(pkg-config --cflags --libs marlockCompanionCommon)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++20 -fPIC ${CONSUMER_DIR}/main.cpp -o ${SCRATCH}/pc-consumer ${flags} -Wl,-rpath,${pc_libdir})
run(${SCRATCH}/pc-consumer)
expect_output("consumer ok")

# A system prefix, where the dynamic linker looks anyway, gets no run path.
set(ENV{DESTDIR} ${SCRATCH}/destdir)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix /usr)
unset(ENV{DESTDIR})
check_run_paths(${SCRATCH}/destdir/usr NONE)
