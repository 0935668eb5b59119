# The PNG codec and deflate: libpng and zlib of the system, or, where Debian has none for the target, static ones
# that tools/build_png.sh builds from Debian's sources.

option(TQ_PNG "PNG codec, over libpng" ON)

function(tq_find_built_png target)
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/build_png.sh ${target}
    OUTPUT_VARIABLE root OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "No libpng for ${target}; configure with -DTQ_PNG=OFF to do without")
  endif()
  add_library(tq_png INTERFACE)
  target_include_directories(tq_png SYSTEM INTERFACE ${root}/include)
  target_link_libraries(tq_png INTERFACE ${root}/lib/libpng.a ${root}/lib/libz.a)
endfunction()

if(TQ_PNG)
  list(APPEND TQ_FORMATS_SOURCES
    formats/png/library.cpp
    formats/png/png.cpp)
  list(APPEND TQ_CODING_SOURCES coding/deflate.cpp)
  list(APPEND TQ_FORMATS_TESTS tests/formats/png_test.cpp)
  if(WIN32)
    tq_find_built_png(win32)
  elseif(CMAKE_SIZEOF_VOID_P EQUAL 4)
    tq_find_built_png(linux32)
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
