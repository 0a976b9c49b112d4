# WebAssembly with 128-bit vectors, by Emscripten.
find_path(ORVO_EMSCRIPTEN cmake/Modules/Platform/Emscripten.cmake
          PATHS /usr/share/emscripten "$ENV{EMSDK}/upstream/emscripten" NO_DEFAULT_PATH REQUIRED)
include("${ORVO_EMSCRIPTEN}/cmake/Modules/Platform/Emscripten.cmake")
set(CMAKE_CROSSCOMPILING_EMULATOR "")
set(CMAKE_C_FLAGS_INIT "-msimd128")
set(CMAKE_CXX_FLAGS_INIT "-msimd128")
# The library's one mutex; there are no threads to hold it.
set(CMAKE_HAVE_LIBC_PTHREAD ON)
