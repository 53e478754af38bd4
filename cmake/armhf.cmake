# Toolchain of the station's own processor, a Cortex-A7: Debian's cross compiler, the target's headers and
# libraries from the folder that scripts/sysroot.sh makes. Nothing of the target is run.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

if(NOT BRISCA_SYSROOT)
    set(cache "$ENV{XDG_CACHE_HOME}")
    if(NOT cache)
        set(cache "$ENV{HOME}/.cache")
    endif()
    set(BRISCA_SYSROOT "${cache}/brisca-service/armhf/sysroot")
endif()
if(NOT EXISTS "${BRISCA_SYSROOT}/.made-from")
    message(FATAL_ERROR "No sysroot in ${BRISCA_SYSROOT}: run scripts/sysroot.sh")
endif()
set(BRISCA_SYSROOT "${BRISCA_SYSROOT}" CACHE PATH "Headers and libraries of the station's processor")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES BRISCA_SYSROOT)
set(CMAKE_SYSROOT "${BRISCA_SYSROOT}")

set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
set(CMAKE_C_FLAGS_INIT "-mcpu=cortex-a7 -mfpu=neon-vfpv4 -mfloat-abi=hard")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${BRISCA_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${BRISCA_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${BRISCA_SYSROOT}/usr/share/pkgconfig")

# What the package's maker would otherwise take from the machine it runs on.
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${BRISCA_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_LIBRARY_ARCHITECTURE}-objcopy)
set(CPACK_READELF_EXECUTABLE ${CMAKE_LIBRARY_ARCHITECTURE}-readelf)
