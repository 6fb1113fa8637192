# DDAL_SANITIZE: compiler sanitizers for everything that is built, e.g. "address,undefined" or "thread".
set(DDAL_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=")
if(DDAL_SANITIZE)
    add_compile_options(-fsanitize=${DDAL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${DDAL_SANITIZE})
    if(DDAL_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize=vptr) # needs the type information that the library is built without
    endif()
    if(DDAL_SANITIZE MATCHES "thread")
        add_compile_options(-Wno-tsan) # gcc warns of every fence; the page reader's are next to atomic accesses
    endif()
endif()
