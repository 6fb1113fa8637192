# -Wconversion is added for the library alone: test frameworks do not survive it. No -Wpedantic for C++: it refuses "%m".
set(DDAL_WARNINGS -Wall -Wextra -Wshadow -Wformat=2 -Wundef -Wnon-virtual-dtor -Wno-variadic-macros)
list(TRANSFORM DDAL_WARNINGS REPLACE "^-Wnon-virtual-dtor$" "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>")
if(DDAL_WERROR)
    list(APPEND DDAL_WARNINGS -Werror)
endif()
