find_package(doctest REQUIRED)
include(doctest)

string(FIND "${CMAKE_CXX_FLAGS}" "-fsanitize=thread" at)
if(at GREATER -1)
    set(orvi_thread_sanitizer TRUE)
endif()
string(FIND "${CMAKE_CXX_FLAGS}" "-fsanitize=" at)
if(at GREATER -1)
    set(orvi_sanitizer TRUE)
endif()

# Tells the builds apart where several run under one CTest.
set(ORVI_TEST_PREFIX "" CACHE STRING "Text in front of the names of all tests")

add_library(orvi_test_main STATIC ${PROJECT_SOURCE_DIR}/tests/support/Main.cpp)
target_link_libraries(orvi_test_main PUBLIC doctest::doctest orvi::core)
target_include_directories(orvi_test_main PUBLIC ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tests/support)
orvi_compile_options(orvi_test_main)

# orvi_test(streams SOURCES MemoryStreamTest.cpp [THREADED] [INTERNAL])
# One program of doctest cases; CTest lists every case. THREADED programs are those that the thread sanitizer
# runs too. INTERNAL tests compile sources of the library's inside themselves, since its symbols are hidden.
function(orvi_test name)
    cmake_parse_arguments(arg "THREADED;INTERNAL" "" "SOURCES" ${ARGN})
    if(orvi_thread_sanitizer AND NOT arg_THREADED)
        return()
    endif()
    add_executable(${name}_test ${arg_SOURCES})
    target_link_libraries(${name}_test PRIVATE orvi_test_main Threads::Threads)
    orvi_compile_options(${name}_test)
    if(arg_INTERNAL)
        target_include_directories(${name}_test PRIVATE ${PROJECT_SOURCE_DIR}/src/core)
    endif()
    doctest_discover_tests(${name}_test TEST_PREFIX "${ORVI_TEST_PREFIX}${name}: ")
endfunction()
