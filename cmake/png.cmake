# The PNG codec and deflate: libpng and zlib of the system, or, where Debian has none for the target, a static
# libpng that tools/build_dependency.sh builds from Debian's sources, and a static zlib: Debian's, or built likewise.

option(TQ_PNG "PNG codec, over libpng" ON)

# Libraries that Debian has not for the target; `root` becomes the folder of their include/ and lib/.
function(tq_build_dependency set option root)
  if(EMSCRIPTEN)
    set(target wasm)
  elseif(NOT WIN32)
    set(target linux32)
  elseif(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(target win64)
  else()
    set(target win32)
  endif()
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/build_dependency.sh ${target} ${set}
    OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "Not built for ${target}: ${set}; configure with -D${option}=OFF to do without")
  endif()
  set(${root} ${found} PARENT_SCOPE)
endfunction()

function(tq_find_built_png)
  tq_build_dependency(png TQ_PNG root)
  set(tq_png_root ${root} PARENT_SCOPE)  # its licences
  add_library(tq_png INTERFACE)
  target_include_directories(tq_png SYSTEM INTERFACE ${root}/include)
  target_link_libraries(tq_png INTERFACE ${root}/lib/libpng.a)
  if(WIN32)
    find_library(TQ_STATIC_ZLIB NAMES libz.a REQUIRED)
    target_link_libraries(tq_png INTERFACE ${TQ_STATIC_ZLIB})
  else()
    target_link_libraries(tq_png INTERFACE ${root}/lib/libz.a)
  endif()
endfunction()

if(TQ_PNG)
  list(APPEND TQ_FORMATS_SOURCES
    formats/png/library.cpp
    formats/png/png.cpp)
  list(APPEND TQ_CODING_SOURCES coding/deflate.cpp)
  list(APPEND TQ_FORMATS_TESTS tests/formats/png_test.cpp)
  if(WIN32 OR CMAKE_SIZEOF_VOID_P EQUAL 4)
    tq_find_built_png()
  else()
    find_package(PNG REQUIRED)
    add_library(tq_png INTERFACE)
    target_link_libraries(tq_png INTERFACE PNG::PNG)
  endif()
else()
  list(APPEND TQ_FORMATS_SOURCES formats/png/none.cpp)
  list(APPEND TQ_CODING_SOURCES coding/deflate_none.cpp)
  add_library(tq_png INTERFACE)
endif()
if(TQ_LIBFUZZER)
  # Damaged chunks are to reach what reads them.
  target_compile_definitions(tq_png INTERFACE FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION)
endif()
