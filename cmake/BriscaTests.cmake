# How tests are declared.
include_guard()
include(GoogleTest)
find_package(GTest REQUIRED)
# The programs of one kind of tests, and what they run.
add_custom_target(unit_tests)
add_custom_target(system_tests)

# brisca_test(<target> SOURCES <file>... [FLOORS <floor>...] [LIBS <library>...] [LABEL unit|system]
#             [SANDBOX] [SERIAL] [TIMEOUT <seconds>] [QT])
# A GoogleTest program; CTest runs each of its cases in a process of its own. SANDBOX runs it with /tmp,
# /evse and /dev/evse of its own. SERIAL keeps other tests from running beside it.
function(brisca_test target)
    cmake_parse_arguments(ARG "SANDBOX;SERIAL;QT" "LABEL;TIMEOUT" "SOURCES;FLOORS;LIBS" ${ARGN})
    if(NOT ARG_LABEL)
        set(ARG_LABEL unit)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${target} ${ARG_SOURCES})
    add_dependencies(${ARG_LABEL}_tests ${target})
    if(BRISCA_SANITIZER STREQUAL "thread")
        target_sources(${target} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/ThreadSanitizerOptions.cpp")
    endif()
    # Optimised fully, GCC 12 sees uninitialised vectors, overlapping copies and short arrays in tables of test
    # rows where there are none (its bugs 105562, 105329 and 107852); and tests compile faster without.
    target_compile_options(${target} PRIVATE "$<$<CONFIG:Release>:-O1;-g0>"
                           $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized -Wno-restrict>)
    brisca_link_floors(${target} ${ARG_FLOORS})
    target_link_libraries(${target} PRIVATE brisca_test_support GTest::gmock ${ARG_LIBS})
    if(ARG_QT)
        set_target_properties(${target} PROPERTIES AUTOMOC ON)
    endif()
    if(ARG_SANDBOX)
        set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR
                              "${PROJECT_SOURCE_DIR}/tests/support/sandbox.sh")
    endif()
    set(properties LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT})
    if(ARG_SERIAL)
        list(APPEND properties RUN_SERIAL ON)
    endif()
    gtest_discover_tests(${target} TEST_PREFIX "${target}." DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES PROPERTIES ${properties})
endfunction()
