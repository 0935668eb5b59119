# WebAssembly, by Debian's Emscripten.

include(/usr/share/emscripten/cmake/Modules/Platform/Emscripten.cmake)
