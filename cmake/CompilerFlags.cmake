# Warnings, hardening and sanitizers, applied to every target of the project through
# marlock_configure_target(). Third-party code is never built here, so they can be strict.

add_library(marlock_build_flags INTERFACE)
target_compile_options(marlock_build_flags INTERFACE
    -Wall -Wextra -Wpedantic $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> -Wnon-virtual-dtor -Wcast-align -Woverloaded-virtual
    -Wformat=2 -Wimplicit-fallthrough
    $<$<BOOL:${MARLOCK_WERROR}>:-Werror>
    # Hardening: stack protector, fortified libc calls, no executable stack.
    -fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>
    # Source paths in fatal reports and logs start at the repository root
    # ("marlockCompanionCommon/RNCryptor/…"), whatever the checkout's location.
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_link_options(marlock_build_flags INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)

if(MARLOCK_SANITIZE)
    target_compile_options(marlock_build_flags INTERFACE
        -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    target_link_options(marlock_build_flags INTERFACE -fsanitize=address,undefined)
endif()

# marlock_configure_target(<target>): the project's flags, without making them part of the
# installed interface of the target.
function(marlock_configure_target target)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:marlock_build_flags>)
endfunction()

# marlock_hide_symbols(<target>): compiles <target> with -fvisibility=hidden and
# -fvisibility-inlines-hidden. The libraries' code is built this way, so that a shared library
# exports only what its headers mark with the export macro (MCC_EXPORT, MARLOCK_COMMON_EXPORT)
# and private code can never clash with a host program's symbols.
function(marlock_hide_symbols target)
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
