# Programs beside the library: the command line tool (the public header only) and the benchmarks.

add_custom_target(programs)  # what is installed beside the library, and what its tests need

if(TQ_TOOL_SOURCES)
  add_executable(tarnquill_tool ${TQ_TOOL_SOURCES})
  target_link_libraries(tarnquill_tool PRIVATE tarnquill tq_warnings)
  target_include_directories(tarnquill_tool PRIVATE ${PROJECT_SOURCE_DIR}/examples)  # letters.h
  target_compile_definitions(tarnquill_tool PRIVATE TARNQUILL_VERSION="${PROJECT_VERSION}")
  set_target_properties(tarnquill_tool PROPERTIES
    OUTPUT_NAME tarnquill INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  if(WIN32)
    target_link_options(tarnquill_tool PRIVATE -static -municode)
  elseif(NOT TQ_INSTRUMENTED)
    # Binding the C++ library's 1,700 names takes longer than all else that a start does.
    target_link_options(tarnquill_tool PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  tq_add_version(tarnquill_tool tarnquill "Converts and cleans images")
  install(TARGETS tarnquill_tool)
  add_dependencies(tarnquill_tool lzw_module pdf_module)
  add_dependencies(programs tarnquill_tool)
endif()

# Examples, compiled as their readers would: the public header, no source of the library.
function(tq_add_example name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE tarnquill tq_warnings)
  set_target_properties(${name} PROPERTIES C_STANDARD 99)
  if(TQ_INSTRUMENTED)
    # clang's sanitizers keep what C++ code needs in a library that only its C++ driver links.
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  endif()
  if(WIN32)
    target_link_options(${name} PRIVATE -static)
  endif()
endfunction()
tq_add_example(example_convert examples/convert.c)
tq_add_example(example_own_io examples/own_io.c)
tq_add_example(contact_sheet examples/contact_sheet.cpp)
tq_add_example(make_scene examples/make_scene.cpp examples/scene.cpp)
tq_add_example(make_scan examples/make_scan.cpp examples/scene.cpp)
add_dependencies(programs make_scene)
if(WIN32)
  tq_add_example(viewer_win32 examples/viewer_win32.c)
elseif(CMAKE_SIZEOF_VOID_P EQUAL 8)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(SDL2 QUIET IMPORTED_TARGET sdl2)
  endif()
  if(SDL2_FOUND)
    tq_add_example(viewer_sdl examples/viewer_sdl.c)
    target_link_libraries(viewer_sdl PRIVATE PkgConfig::SDL2)
    target_compile_definitions(viewer_sdl PRIVATE _GNU_SOURCE)
  endif()
endif()

# Built by name only. Timings of an instrumented or foreign build say nothing.
add_custom_target(benches)
if(TQ_BENCH_SOURCES AND NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  find_package(benchmark QUIET)
  if(benchmark_FOUND)
    add_executable(tarnquill_bench EXCLUDE_FROM_ALL ${TQ_BENCH_SOURCES})
    add_dependencies(benches tarnquill_bench)
    target_link_libraries(tarnquill_bench PRIVATE
      ${TQ_LAYERS} tq_warnings benchmark::benchmark_main)
    # The peer of the JPEG benchmarks; without it there are none.
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND)
      pkg_check_modules(TURBOJPEG QUIET IMPORTED_TARGET libturbojpeg)
    endif()
    if(TURBOJPEG_FOUND)
      target_compile_definitions(tarnquill_bench PRIVATE TQ_HAVE_TURBOJPEG)
      target_link_libraries(tarnquill_bench PRIVATE PkgConfig::TURBOJPEG)
    endif()
    find_package(TIFF QUIET)  # to compare with
    if(TIFF_FOUND)
      target_compile_definitions(tarnquill_bench PRIVATE TQ_HAVE_LIBTIFF)
      target_link_libraries(tarnquill_bench PRIVATE TIFF::TIFF)
    endif()
    if(TQ_PNG)  # what the codec itself uses
      target_compile_definitions(tarnquill_bench PRIVATE TQ_BENCH_LIBPNG=1)
    endif()
    # Other libraries to compare with, if they are installed.
    find_library(TQ_LEPTONICA lept)
    find_library(TQ_FREEIMAGE freeimage)
    foreach(peer LEPTONICA FREEIMAGE)
      if(TQ_${peer})
        target_link_libraries(tarnquill_bench PRIVATE ${TQ_${peer}})
        target_compile_definitions(tarnquill_bench PRIVATE TQ_BENCH_${peer}=1)
      endif()
    endforeach()
  endif()
endif()

if(WIN32)
  add_executable(show_bench EXCLUDE_FROM_ALL bench/show_win32.c)
  target_link_libraries(show_bench PRIVATE tarnquill tq_warnings)
  target_link_options(show_bench PRIVATE -static)
endif()

# Measurements of their own process.
if(PROJECT_IS_TOP_LEVEL AND UNIX AND NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  add_executable(plan_memory EXCLUDE_FROM_ALL bench/plan_memory.cpp)
  target_link_libraries(plan_memory PRIVATE tarnquill tq_warnings)
  add_executable(measure EXCLUDE_FROM_ALL bench/measure.c)
  target_link_libraries(measure PRIVATE tq_warnings)
  # Beside all of the usual libraries, or not at all.
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(TQ_PEERS QUIET IMPORTED_TARGET libturbojpeg libpng libtiff-4 lept)
  endif()
  find_library(TQ_GIFLIB gif)
  if(TQ_PEERS_FOUND AND TQ_GIFLIB AND TQ_FREEIMAGE)
    add_executable(peer_table EXCLUDE_FROM_ALL bench/peer_table.cpp)
    target_link_libraries(peer_table PRIVATE
      ${TQ_LAYERS} tq_warnings PkgConfig::TQ_PEERS ${TQ_GIFLIB} ${TQ_FREEIMAGE})
    add_dependencies(peer_table lzw_module)
  endif()
endif()

# What ./demo runs, and the test of what it makes.
if(TARGET tarnquill_tool AND TARGET measure)
  if(BUILD_TESTING)
    set(tq_demonstration_of_all ALL)
  endif()
  add_custom_target(demonstration ${tq_demonstration_of_all})
  add_dependencies(demonstration
    tarnquill_tool contact_sheet make_scan make_scene measure plan_memory)
endif()
