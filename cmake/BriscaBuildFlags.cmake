# Compiler and linker flags that every target of this project shares.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
include(CheckPIESupported)
check_pie_supported()

find_program(BRISCA_CCACHE ccache)
if(BRISCA_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${BRISCA_CCACHE}")
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Werror $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
# GCC's remarks for ARM on what it passed otherwise before its version 7: nothing so old is linked.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    # Without it a backtrace ends at every function that throws nothing; elsewhere it is the compiler's default.
    add_compile_options(-fasynchronous-unwind-tables)
endif()
add_compile_definitions(_GNU_SOURCE)

set(BRISCA_RELEASE_CONFIG $<CONFIG:Release,RelWithDebInfo>)
# Debug information goes to the package brisca-service-dbgsym.
add_compile_options(
    $<${BRISCA_RELEASE_CONFIG}:-g>
    $<${BRISCA_RELEASE_CONFIG}:-fstack-protector-strong>
    $<${BRISCA_RELEASE_CONFIG}:-U_FORTIFY_SOURCE>
    $<${BRISCA_RELEASE_CONFIG}:-D_FORTIFY_SOURCE=2>)
add_link_options("$<${BRISCA_RELEASE_CONFIG}:LINKER:-z,relro,-z,now>")

if(BRISCA_SANITIZER STREQUAL "address")
    # Plain char is unsigned on the target: this build proves that nothing depends on its sign.
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                        -fno-omit-frame-pointer -funsigned-char)
    add_link_options(-fsanitize=address,undefined)
elseif(BRISCA_SANITIZER STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(BRISCA_SANITIZER STREQUAL "fuzz")
    # The driver itself (-fsanitize=fuzzer) is linked by the fuzz targets only.
    add_compile_options(-fsanitize=address,undefined,fuzzer-no-link -fno-sanitize-recover=undefined
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(NOT BRISCA_SANITIZER STREQUAL "")
    message(FATAL_ERROR "BRISCA_SANITIZER is '${BRISCA_SANITIZER}': use address, thread, fuzz or nothing")
endif()
