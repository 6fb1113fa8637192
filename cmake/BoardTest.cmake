# Test programs. Each is one ctest entry; its report test-results/<name>.xml lists its cases.

# AddressSanitizer's runtime must be the first library of a program that was built with it, before those of the board. Other
# programs, such as the shell and its tools, must not load it: it refuses some of their requests to the allocator.
# ThreadSanitizer's runtime need not come first.
set(board_runtime "")
if(DDAL_SANITIZE MATCHES "address")
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so OUTPUT_VARIABLE runtime
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(board_runtime --runtime ${runtime})
endif()

# Programs of another processor run under an emulator, on a board of the native build.
if(CMAKE_CROSSCOMPILING)
    set(DDAL_NATIVE_BUILD ${PROJECT_SOURCE_DIR}/build/debug CACHE PATH "Build tree with this machine's own vboard")
    set(board_vboard ${DDAL_NATIVE_BUILD}/bin/vboard)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    set(board_run ${board_vboard} run --emulator ${emulator})
    # Cases that cannot run there, each with its reason.
    set(left_out_list ${PROJECT_SOURCE_DIR}/tests/arm/left-out.txt)
    set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${left_out_list})
    file(STRINGS ${left_out_list} left_out_lines REGEX "^[a-z]")
else()
    set(board_vboard $<TARGET_FILE:vboard>)
    set(board_run ${board_vboard} run)
endif()

# Some cases request more memory than the machine has and expect a refusal, not an abort. A plain test starts programs of this
# build on a board without the sanitizer's runtime in front.
set(board_environment "")
set(plain_environment "")
if(DDAL_SANITIZE)
    set(board_environment ASAN_OPTIONS=allocator_may_return_null=1
        TSAN_OPTIONS=allocator_may_return_null=1:suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan-glib.supp)
    set(plain_environment ASAN_OPTIONS=allocator_may_return_null=1:verify_asan_link_order=0)
endif()
if(CMAKE_CROSSCOMPILING) # for the boards and programs that plain tests start
    set(plain_environment VBOARD_EMULATOR=${emulator})
endif()

# Returns the arguments that leave out the listed cases of a test program: "<entry> <Suite.Case> <reason>" a line.
function(left_out_arguments entry variable)
    set(cases "")
    foreach(line IN LISTS left_out_lines)
        if(line MATCHES "^([^ ]+) +([^ ]+) " AND CMAKE_MATCH_1 STREQUAL entry)
            list(APPEND cases ${CMAKE_MATCH_2})
        endif()
    endforeach()
    list(JOIN cases ":" cases)
    set(${variable} "" PARENT_SCOPE)
    if(cases)
        set(${variable} --gtest_filter=-${cases} PARENT_SCOPE)
    endif()
endfunction()

# add_test_program(<name> <sources> <libraries> <timeout> <environment> <words before the program>...)
function(add_test_program name sources libraries timeout environment)
    if(NOT timeout)
        set(timeout 120)
    endif()
    if(CMAKE_CROSSCOMPILING)
        math(EXPR timeout "4 * ${timeout}") # an emulator is that much slower
    endif()
    left_out_arguments(${name} left_out)
    string(REPLACE "." "_" target test_${name})
    add_executable(${target} ${sources})
    target_compile_options(${target} PRIVATE ${DDAL_WARNINGS})
    target_link_libraries(${target} PRIVATE ${libraries})
    add_dependencies(${target} vboard vboard_boards)
    set(program ${target})
    if(ARGN)
        set(program ${ARGN} -- $<TARGET_FILE:${target}>)
    endif()
    add_test(NAME ${name}
             COMMAND ${program} --gtest_output=xml:${CMAKE_BINARY_DIR}/test-results/${name}.xml ${left_out}
             WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${timeout} ENVIRONMENT "${environment}")
endfunction()

# add_board_test(<name> SOURCES ... [TYPE mbo] [SPEED n] [HIDDEN | LOADS] [LIBRARIES ...] [TIMEOUT s] [OPTIONS ...])
#
# Runs a test program on a new virtual board with the shipped library. HIDDEN links the objects of the library instead, to test
# functions that it does not export. LOADS links neither: the program loads DDAL_LIBRARY itself. OPTIONS are passed to
# "vboard run".
function(add_board_test name)
    cmake_parse_arguments(arg "HIDDEN;LOADS" "TYPE;SPEED;TIMEOUT" "SOURCES;LIBRARIES;OPTIONS" ${ARGN})
    if(NOT arg_TYPE)
        set(arg_TYPE mbo)
    endif()
    if(NOT arg_SPEED)
        set(arg_SPEED 1)
    endif()
    set(product $<IF:$<BOOL:${arg_HIDDEN}>,ddal_objects,ddal>)
    if(arg_LOADS)
        set(product "")
    endif()
    add_test_program(${name} "${arg_SOURCES}" "${product};board_testing;${arg_LIBRARIES}" "${arg_TIMEOUT}" "${board_environment}"
                     ${board_run} --type ${arg_TYPE} --speed ${arg_SPEED} ${board_runtime} ${arg_OPTIONS})
    string(REPLACE "." "_" target test_${name})
    add_dependencies(${target} ddal)
    if(arg_LOADS)
        target_compile_definitions(${target} PRIVATE DDAL_LIBRARY="$<TARGET_FILE:ddal>")
    endif()
endfunction()

# add_plain_test(<name> SOURCES ... [LIBRARIES ...] [TIMEOUT s])
#
# Runs a test program without a board, for models alone and for tests that start boards themselves. Defines DDAL_BUILD_DIR and
# VBOARD_PROGRAM for them.
function(add_plain_test name)
    cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
    add_test_program(${name} "${arg_SOURCES}" "board_testing;${arg_LIBRARIES}" "${arg_TIMEOUT}" "${plain_environment}")
    string(REPLACE "." "_" target test_${name})
    target_compile_definitions(${target} PRIVATE DDAL_BUILD_DIR="${CMAKE_BINARY_DIR}" VBOARD_PROGRAM="${board_vboard}")
endfunction()

# mark_thread_tests(<name>...): runs tests under the thread sanitizer as well. Its preset builds these tests only.
add_custom_target(thread_tests)
function(mark_thread_tests)
    set_tests_properties(${ARGN} PROPERTIES LABELS threads)
    foreach(name IN LISTS ARGN)
        string(REPLACE "." "_" target test_${name})
        add_dependencies(thread_tests ${target})
    endforeach()
endfunction()
