# 64-bit Windows with MinGW-w64. Programs run under wine64 when it is
# installed, in a Wine prefix of the build directory whose locale is pinned
# to US English: ANSI page 1252, OEM page 437, language 0x0409.
set(MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-toolchain.cmake)

find_program(MERGEDB_WINE64 wine64 PATHS /usr/lib/wine /usr/lib/wine64 NO_CACHE)
if(MERGEDB_WINE64)
  set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CMAKE_COMMAND} -E env WINEPREFIX=${CMAKE_BINARY_DIR}/wine-prefix WINEDEBUG=-all
    WINEDLLOVERRIDES=mscoree,mshtml= LC_ALL=C.UTF-8 ${MERGEDB_WINE64})
endif()
