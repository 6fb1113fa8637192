# Sets callers: a source file with one caller for every operation that a public header declares.
file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/ddal/*.h)
set(callers ${CMAKE_CURRENT_BINARY_DIR}/callers.cpp)
add_custom_command(OUTPUT ${callers}
    COMMAND python3 -B ${CMAKE_CURRENT_LIST_DIR}/process/make_callers.py ${callers} ${PROJECT_SOURCE_DIR}/abi/exports.txt
            ${PROJECT_SOURCE_DIR}/abi/unsupported.txt ${headers}
    DEPENDS ${CMAKE_CURRENT_LIST_DIR}/process/make_callers.py ${CMAKE_CURRENT_LIST_DIR}/process/arguments.py
            ${PROJECT_SOURCE_DIR}/docs/reference/header_comments.py ${headers}
            ${PROJECT_SOURCE_DIR}/abi/exports.txt ${PROJECT_SOURCE_DIR}/abi/unsupported.txt
    VERBATIM)
