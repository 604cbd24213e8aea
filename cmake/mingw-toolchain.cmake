# Shared part of the MinGW-w64 cross toolchains. The including file sets
# MINGW_TRIPLE and CMAKE_SYSTEM_PROCESSOR first.
set(CMAKE_SYSTEM_NAME Windows)
# The compilers of the POSIX thread model, whose C++ library has std::mutex
# and std::thread (GoogleTest needs them); the program links it statically.
set(CMAKE_C_COMPILER ${MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${MINGW_TRIPLE}-windres)
set(CMAKE_OBJDUMP ${MINGW_TRIPLE}-objdump)

# Headers, libraries and packages come from the target's tree only; programs
# from the build machine.
list(APPEND CMAKE_FIND_ROOT_PATH /usr/${MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
