# Installs both libraries with CMake package configs and pkg-config files:
#   find_package(marlockCompanionCommon) → marlockCompanionCommon::marlockCompanionCommon
#   find_package(marlockCommon)          → marlockCommon::marlockCommon
include(CMakePackageConfigHelpers)

# pkg-config files locate the prefix from their own folder, so an installed tree can be moved.
file(RELATIVE_PATH PC_PREFIX_FROM_PCDIR /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)

foreach(pkg marlockCommon marlockCompanionCommon)
    # The run path lets libmarlockCompanionCommon find libmarlockCommon beside it (cmake/RunPath.cmake).
    marlock_install_with_run_path(${pkg} DESTINATION ${CMAKE_INSTALL_LIBDIR} EXPORT ${pkg}Targets)
    install(EXPORT ${pkg}Targets NAMESPACE ${pkg}:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${pkg})
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${pkg}Config.cmake.in
        ${PROJECT_BINARY_DIR}/${pkg}Config.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${pkg})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/${pkg}ConfigVersion.cmake
        COMPATIBILITY SameMinorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/${pkg}Config.cmake ${PROJECT_BINARY_DIR}/${pkg}ConfigVersion.cmake
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${pkg})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${pkg}.pc.in ${PROJECT_BINARY_DIR}/${pkg}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${pkg}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    # Public headers only: private ones end in _p.h or live in internal/ folders.
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${pkg}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${pkg}
            FILES_MATCHING PATTERN "*.h" PATTERN "*_p.h" EXCLUDE PATTERN "internal" EXCLUDE)
endforeach()
