# Cross-build for 64-bit Windows with the MinGW-w64 compilers (posix threads flavour, for
# std::thread and std::mutex); the programs run here under wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ZV_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${ZV_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ZV_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${ZV_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${ZV_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Self-contained programs: no MinGW runtime DLLs to find beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(ZLIB_USE_STATIC_LIBS ON)

# Tests and test discovery run under wine, in a prefix of the build's own, quietly.
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR AND EXISTS /usr/lib/wine/wine64)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      /usr/bin/env WINEDEBUG=-all WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix /usr/lib/wine/wine64)
endif()
