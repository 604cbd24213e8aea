# 32-bit Windows with MinGW-w64. No emulator: the build compiles and links,
# its tests do not run here.
set(MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-toolchain.cmake)
