# Cross build for Windows x64 with mingw-w64 (posix threading variant, which has
# std::thread, std::mutex and std::shared_mutex). Programs are linked statically,
# so they need only system DLLs, and run under wine through CTest's emulator.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(LMX_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${LMX_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${LMX_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${LMX_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${LMX_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# No dependency on the compiler's runtime DLLs (libstdc++, libgcc, winpthread).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

find_program(LMX_WINE NAMES wine wine64)
if(LMX_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${LMX_WINE})
endif()
