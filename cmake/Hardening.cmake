# Optimised builds: read-only relocations, immediate binding, stack protector, checked libc calls.
if(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT DDAL_SANITIZE)
    add_compile_options(-fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()
add_link_options(-Wl,--as-needed)
