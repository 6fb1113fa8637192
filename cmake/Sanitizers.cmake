# DDAL_SANITIZE: compiler sanitizers for the whole build, e.g. "address,undefined" or "thread".
set(DDAL_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=")
if(DDAL_SANITIZE)
    add_compile_options(-fsanitize=${DDAL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${DDAL_SANITIZE})
    if(DDAL_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize=vptr) # requires type information, which the library lacks
    endif()
    if(DDAL_SANITIZE MATCHES "thread")
        add_compile_options(-Wno-tsan) # gcc warns about every fence; those of the page reader accompany atomic accesses
    endif()
endif()
