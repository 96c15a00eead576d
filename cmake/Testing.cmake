# marlock_add_test(<name> SOURCES … [LIBS …] [GUI])
# One GoogleTest executable, registered as one CTest test. Every test runs with Qt's offscreen
# platform; GUI tests get a QApplication instead of a QCoreApplication.
function(marlock_add_test name)
    cmake_parse_arguments(T "GUI" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    if(T_GUI)
        target_link_libraries(${name} PRIVATE marlock_test_main_gui)
    else()
        target_link_libraries(${name} PRIVATE marlock_test_main)
    endif()
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock)
    marlock_configure_target(${name})
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;GTEST_BRIEF=1"
        TIMEOUT 300)
endfunction()
