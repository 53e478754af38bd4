# How the floors of the service become CMake targets.
include_guard()

# brisca_add_directory(<dir>): add a subdirectory that has a CMakeLists.txt.
function(brisca_add_directory directory)
    if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${directory}/CMakeLists.txt")
        add_subdirectory(${directory})
    endif()
endfunction()

# brisca_link_floors(<target> <floor>...): link floors with every one of their objects.
# Each translation unit creates its log node at static initialisation; a plain static archive drops an
# object that nothing references, and its node with it.
function(brisca_link_floors target)
    foreach(floor IN LISTS ARGN)
        target_link_libraries(${target} PUBLIC $<LINK_LIBRARY:WHOLE_ARCHIVE,${floor}>)
    endforeach()
endfunction()

# brisca_floor(<target> SOURCES <file>... [FLOORS <floor>...] [LIBS <library>...] [QT])
# One floor: a static library whose own folder is its include path. FLOORS are floors below it, LIBS are
# foreign libraries, QT turns on Qt's meta-object compiler.
function(brisca_floor target)
    cmake_parse_arguments(ARG "QT" "" "SOURCES;FLOORS;LIBS" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES})
    target_include_directories(${target} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}")
    brisca_link_floors(${target} ${ARG_FLOORS})
    target_link_libraries(${target} PUBLIC ${ARG_LIBS})
    if(ARG_QT)
        set_target_properties(${target} PROPERTIES AUTOMOC ON)
        target_compile_definitions(${target} PUBLIC QT_NO_KEYWORDS)
    endif()
endfunction()

# brisca_add_suites(<folder>...)
# Adds the folders, also as patterns, that hold a CMakeLists.txt.
function(brisca_add_suites)
    list(TRANSFORM ARGN REPLACE ".+" "${CMAKE_CURRENT_SOURCE_DIR}/\\0/CMakeLists.txt")
    file(GLOB suites CONFIGURE_DEPENDS ${ARGN})
    foreach(suite IN LISTS suites)
        cmake_path(GET suite PARENT_PATH suite)
        add_subdirectory(${suite})
    endforeach()
endfunction()
