# Optimised builds: read-only relocations, immediate binding, position independent programs, a protected stack, checked libc
# calls, and on x86 targets marked for indirect jumps. tests/checks/hardening.py looks at the result.
if(CMAKE_BUILD_TYPE MATCHES "Rel|^None$" AND NOT DDAL_SANITIZE) # None: what a package is built as
    include(CheckPIESupported)
    check_pie_supported()
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
    add_compile_options(-fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        add_compile_options(-fcf-protection=full)
        # libc's start files are marked for neither. They keep the shadow stack, but do not mark the targets of jumps.
        add_link_options(-Wl,-z,shstk)
    endif()
endif()
add_link_options(-Wl,--as-needed)
