# The library alone adds -Wconversion, because test frameworks do not compile with it. C++ does without -Wpedantic, which
# refuses "%m".
set(DDAL_WARNINGS -Wall -Wextra -Wshadow -Wformat=2 -Wundef -Wnon-virtual-dtor -Wno-variadic-macros)
list(TRANSFORM DDAL_WARNINGS REPLACE "^-Wnon-virtual-dtor$" "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>")
if(DDAL_WERROR)
    list(APPEND DDAL_WARNINGS -Werror)
endif()
# Clang checks which mutex guards what (src/core/thread_safety.h).
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(DDAL_LOCK_WARNINGS -Wthread-safety -Werror=thread-safety)
    list(APPEND DDAL_WARNINGS ${DDAL_LOCK_WARNINGS})
endif()
