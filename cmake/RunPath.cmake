# Installed libraries and programs find the project's libraries through a run path relative to
# their own location ($ORIGIN/../lib for a program in bin/), so an installed tree starts from any
# prefix (/opt/marlock, ~/.local) without LD_LIBRARY_PATH, and keeps working when moved. The
# build tree's absolute run paths never reach an installed file.
#
# Installs into a prefix whose library folder the dynamic linker searches anyway (/usr) carry no
# run path at all, as distribution packages expect. That is decided when installing, since
# `cmake --install --prefix` may name another prefix than the one configured.
set(MARLOCK_SYSTEM_LIBRARY_DIRS ${CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES} ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES})

# marlock_install_with_run_path(<target> DESTINATION <folder> [EXPORT <export set>]): installs
# <target> into <folder> (below the prefix) with the run path described above.
function(marlock_install_with_run_path target)
    cmake_parse_arguments(I "" "DESTINATION;EXPORT" "" ${ARGN})
    file(RELATIVE_PATH to_libdir /root/${I_DESTINATION} /root/${CMAKE_INSTALL_LIBDIR})
    if(to_libdir STREQUAL "")
        set(run_path "$ORIGIN")
    else()
        set(run_path "$ORIGIN/${to_libdir}")
    endif()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "${run_path}")
    if(I_EXPORT)
        set(export EXPORT ${I_EXPORT})
    endif()
    install(TARGETS ${target} ${export}
            LIBRARY DESTINATION ${I_DESTINATION}
            RUNTIME DESTINATION ${I_DESTINATION}
            INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    # Runs when installing, with the prefix of that install (and the policies of install scripts:
    # no IN_LIST).
    install(CODE "
        set(marlock_libdir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")
        cmake_path(NORMAL_PATH marlock_libdir)
        set(marlock_system_dirs \"${MARLOCK_SYSTEM_LIBRARY_DIRS}\")
        list(FIND marlock_system_dirs \"\${marlock_libdir}\" marlock_system)
        if(NOT marlock_system EQUAL -1)
            file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${I_DESTINATION}/$<TARGET_FILE_NAME:${target}>\")
        endif()")
endfunction()

# marlock_install_program(<target>): installs a host program into bin/, ready to start from any
# prefix.
function(marlock_install_program target)
    marlock_install_with_run_path(${target} DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
