# marlock_add_part(<name> SOURCES … [PUBLIC …] [PRIVATE …])
# Declares one folder of marlockCompanionCommon as the static library mcc_<name>. Headers are
# included from the repository root: #include "marlockCompanionCommon/<name>/Header.h".
# The shared marlockCompanionCommon library is made of all parts (see its CMakeLists.txt).
function(marlock_add_part name)
    cmake_parse_arguments(PART "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    add_library(mcc_${name} STATIC ${PART_SOURCES})
    target_include_directories(mcc_${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
    target_link_libraries(mcc_${name} PUBLIC ${PART_PUBLIC} PRIVATE ${PART_PRIVATE})
    marlock_configure_target(mcc_${name})
    set_property(GLOBAL APPEND PROPERTY MARLOCK_PARTS mcc_${name})
endfunction()
