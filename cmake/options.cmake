# Compiler options, as targets that others link. What differs between presets (sanitizers, -m32)
# stands in CMakePresets.json, because GoogleTest has to be built with it as well.

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

set(TQ_PYTHON /usr/bin/python3 CACHE FILEPATH "Python for the DLL's export list and the checks")

# Its results need no precompiled headers, which it would have to be told to trust.
find_program(TQ_CCACHE ccache)
if(TQ_CCACHE)
  # One clone finds what another one compiled.
  set(CMAKE_C_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${TQ_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_C_COMPILER_LAUNCHER})
  set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()

# On in the presets. Off for whoever builds a package: another compiler has other warnings.
option(TQ_WARNINGS_AS_ERRORS "Let a compiler's warning end the build" OFF)

# For all C++ code here, tests and tools included.
add_library(tq_warnings INTERFACE)
target_compile_features(tq_warnings INTERFACE cxx_std_20)
target_compile_options(tq_warnings INTERFACE
  $<$<BOOL:${TQ_WARNINGS_AS_ERRORS}>:-Werror>
  -Wall -Wextra -Wpedantic -Wconversion -Wno-sign-conversion -Wshadow
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>)

# For the code of the library.
add_library(tq_options INTERFACE)
target_link_libraries(tq_options INTERFACE tq_warnings)
target_compile_options(tq_options INTERFACE
  -fno-exceptions -fno-rtti -fvisibility=hidden
  -ffp-contract=off)  # the same floating-point results on every processor

if(EMSCRIPTEN)
  # What its C++ library lacks stands in front of every source, precompiled with what takes the compiler longest.
  set(CMAKE_DISABLE_PRECOMPILE_HEADERS OFF)
  target_precompile_headers(tq_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:${PROJECT_SOURCE_DIR}/platform/wasm/cxx20.h>
    "$<$<COMPILE_LANGUAGE:CXX>:<array$<ANGLE-R>>" "$<$<COMPILE_LANGUAGE:CXX>:<span$<ANGLE-R>>"
    "$<$<COMPILE_LANGUAGE:CXX>:<memory$<ANGLE-R>>" "$<$<COMPILE_LANGUAGE:CXX>:<string_view$<ANGLE-R>>")
  target_compile_definitions(tq_options INTERFACE TQ_READ_ONLY)
  target_compile_options(tq_options INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:SHELL:-Xclang -fno-pch-timestamp>")
endif()

# 32-bit x86 code needs SSE2: x87 registers would round differently from the 64-bit build.
add_library(tq_requires_sse2 INTERFACE)
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND NOT EMSCRIPTEN AND CMAKE_SYSTEM_PROCESSOR MATCHES "86|AMD64")
  target_compile_options(tq_requires_sse2 INTERFACE -msse2 -mfpmath=sse)
endif()
target_link_libraries(tq_warnings INTERFACE tq_requires_sse2)
if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  # 32-bit callers align the stack to 4 bytes only; SSE spills need 16.
  target_compile_options(tq_options INTERFACE -mstackrealign)
  # Tables for unwinding are an eighth of such a DLL, and nothing unwinds: no exception may pass through here. (In
  # 64 bits the system itself uses them.) Of what is aligned, loops gain by it.
  target_compile_options(tq_options INTERFACE
    -fno-asynchronous-unwind-tables -fno-unwind-tables -falign-functions=4 -falign-jumps=1 -falign-labels=1)
endif()

# Sanitizers and checked containers bring a run-time library of their own.
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=|_GLIBCXX_ASSERTIONS|--coverage")
  set(TQ_INSTRUMENTED ON)
else()
  set(TQ_INSTRUMENTED OFF)
endif()
