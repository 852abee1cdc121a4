# Cross compilation for Windows with MinGW-w64. The libraries that Debian has for Linux only come from
# scripts/windows-libraries, which builds them with this file too.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The -win32 variant of these compilers has no std::mutex.
set(triplet x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${triplet}-gcc-posix)
set(CMAKE_CXX_COMPILER ${triplet}-g++-posix)
set(CMAKE_RC_COMPILER ${triplet}-windres)
set(CMAKE_AR ${triplet}-gcc-ar-posix CACHE FILEPATH "")
set(CMAKE_RANLIB ${triplet}-gcc-ranlib-posix CACHE FILEPATH "")

# Windows 7 is the oldest system that the runtime of the compiler serves. The printf family is that
# of C99: that of the system knows no %zu.
add_compile_definitions(_WIN32_WINNT=0x0601 __USE_MINGW_ANSI_STDIO=1)

# Nothing but system libraries remains to be loaded: hosts bring no runtime of this compiler.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)

# Headers and libraries of this machine are for another system.
get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/windows-libraries ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${sysroot} /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_PREFIX_PATH /)
set(ENV{PKG_CONFIG_LIBDIR} ${sysroot}/lib/pkgconfig)
set(PKG_CONFIG_ARGN --static CACHE STRING "")

# Left to themselves these searches take the libraries that need a DLL beside the program.
set(ZLIB_LIBRARY /usr/${triplet}/lib/libz.a CACHE FILEPATH "")
set(OpenMP_C_FLAGS -fopenmp CACHE STRING "")
set(OpenMP_CXX_FLAGS -fopenmp CACHE STRING "")
set(OpenMP_C_LIB_NAMES gomp CACHE STRING "")
set(OpenMP_CXX_LIB_NAMES gomp CACHE STRING "")
set(OpenMP_gomp_LIBRARY gomp CACHE STRING "")

# Programs run under wine, with a system drive of its own.
find_program(POVMESH_WINE NAMES wine64 wine PATHS /usr/lib/wine)
if(POVMESH_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR env WINEPREFIX=${sysroot}/../wine WINEDEBUG=-all LC_ALL=C.UTF-8
        ${POVMESH_WINE})
endif()
