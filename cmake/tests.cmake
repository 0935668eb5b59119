# GoogleTest executables: one per folder, linked to the library's objects, and one for the public
# interface, linked to the shared library alone.

# Built from the distribution's sources, so that it agrees with the preset's sanitizers and target.
set(TQ_GTEST_DIR /usr/src/googletest CACHE PATH "GoogleTest's source folder")
set(INSTALL_GTEST OFF)
add_subdirectory(${TQ_GTEST_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)
if(CMAKE_CXX_FLAGS MATCHES "undefined")
  # Its own arithmetic is not under test, and costs half of its compile time.
  target_compile_options(gtest PRIVATE -fno-sanitize=undefined -g0)
  target_compile_options(gmock PRIVATE -fno-sanitize=undefined -g0)
endif()

# What is under test are the library's objects; optimising the tests themselves takes two thirds of the
# compiler's time.
add_library(tq_test_options INTERFACE)
target_link_libraries(tq_test_options INTERFACE tq_warnings)
if(TQ_INSTRUMENTED OR CMAKE_CROSSCOMPILING)
  target_compile_options(tq_test_options INTERFACE -O0)
  # Models that go over millions of pixels take longer to run than to be optimised.
  set_property(SOURCE tests/core/run_storage_test.cpp tests/formats/ccitt_test.cpp tests/formats/tiff_test.cpp
    tests/process/geometry_test.cpp tests/process/kernels_test.cpp APPEND PROPERTY COMPILE_OPTIONS -O1)
endif()

if(TQ_TEST_SUPPORT_SOURCES)
  add_library(tq_test_support STATIC ${TQ_TEST_SUPPORT_SOURCES})
  target_include_directories(tq_test_support PUBLIC
    ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(tq_test_support PUBLIC TARNQUILL_BUILD)
  target_link_libraries(tq_test_support PUBLIC gmock PRIVATE tq_test_options)
  # Half of the time that a test takes to compile. Matchers are for those that use them.
  target_precompile_headers(tq_test_support PRIVATE <gtest/gtest.h> <filesystem> <functional>)
endif()

# Tests run in the folder tests/, so that their files have short relative names.
function(tq_register_tests name)
  if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests)
    set_tests_properties(${name} PROPERTIES TIMEOUT 600)
  else()
    gtest_discover_tests(${name} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests
      DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
  endif()
endfunction()

foreach(folder platform core io pixels formats process show dispatch scan sweep)
  string(TOUPPER ${folder} upper)
  if(TQ_${upper}_TESTS)
    add_executable(${folder}_tests ${TQ_${upper}_TESTS})
    target_link_libraries(${folder}_tests PRIVATE ${TQ_LAYERS} tq_test_options gtest_main gmock)
    if(TARGET tq_test_support)
      target_link_libraries(${folder}_tests PRIVATE tq_test_support)
      target_precompile_headers(${folder}_tests REUSE_FROM tq_test_support)
    endif()
    if(WIN32)
      target_link_options(${folder}_tests PRIVATE -static)
    endif()
    tq_register_tests(${folder}_tests)
  endif()
endforeach()

target_link_libraries(formats_tests PRIVATE tq_pdf_pictures)

if(WIN32)
  # A scanner for Wine's manager of TWAIN sources, which finds it by its name.
  add_library(test_source MODULE tests/scan/test_source.cpp)
  target_include_directories(test_source PRIVATE
    ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(test_source PRIVATE tq_test_options)
  target_link_options(test_source PRIVATE -static -Wl,--kill-at)
  set_target_properties(test_source PROPERTIES PREFIX "" SUFFIX ".ds")
  file(RELATIVE_PATH tq_test_source ${PROJECT_SOURCE_DIR}/tests ${PROJECT_BINARY_DIR}/lib)
  target_compile_definitions(scan_tests PRIVATE TQ_TEST_SOURCE="${tq_test_source}/test_source.ds")
  add_dependencies(scan_tests test_source)
endif()

if(WIN32 AND CMAKE_CROSSCOMPILING)
  # Seen from tests/, and by Wine. What other programs of this system make of it is compared there.
  file(RELATIVE_PATH tq_printed ${PROJECT_SOURCE_DIR}/tests ${PROJECT_BINARY_DIR}/printed.ps)
  set_tests_properties(show_tests PROPERTIES
    ENVIRONMENT TQ_PRINTED=${tq_printed} FIXTURES_SETUP printed_pages)
  add_test(NAME peers.printed_pages
    COMMAND /usr/bin/python3 peers/printed_pages.py ${tq_printed}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests)
  set_tests_properties(peers.printed_pages PROPERTIES
    FIXTURES_REQUIRED printed_pages SKIP_RETURN_CODE 77 TIMEOUT 120)
  # The library of this system, when it has been built.
  add_test(NAME peers.viewer
    COMMAND /usr/bin/python3 peers/viewer_peers.py
            ${PROJECT_SOURCE_DIR}/build/release/lib/libtarnquill.so $<TARGET_FILE:viewer_win32>
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests)
  set_tests_properties(peers.viewer PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 RUN_SERIAL ON)
endif()

if(TQ_API_TESTS)
  add_executable(api_tests ${TQ_API_TESTS})
  target_link_libraries(api_tests PRIVATE tarnquill tq_test_options gtest_main)
  if(WIN32)
    target_link_options(api_tests PRIVATE -static)
  endif()
  tq_register_tests(api_tests)
endif()

# Beside the module, so that its formats are swept as well.
set_target_properties(sweep_tests PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/modules/lzw_module)
add_dependencies(sweep_tests lzw_module)

# Modules: one program in a folder of its own, because it puts modules beside itself.
if(TQ_MODULE_TESTS)
  tq_add_module(test_module trqvpl1 tests/modules/test_module.cpp)
  tq_add_module(test_module_partial trqvpl1 tests/modules/test_module.cpp)
  target_compile_definitions(test_module_partial PRIVATE TEST_MODULE_PARTIAL)
  set(TQ_MODULE_TEST_DIR ${PROJECT_BINARY_DIR}/module_tests)
  add_executable(module_tests ${TQ_MODULE_TESTS})
  set_target_properties(module_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${TQ_MODULE_TEST_DIR})
  # Relative to the folder that tests run in, because another system may see it under another name.
  file(RELATIVE_PATH tq_built ${PROJECT_SOURCE_DIR}/tests ${PROJECT_BINARY_DIR})
  target_compile_definitions(module_tests PRIVATE
    TQ_TEST_PROGRAMS="${tq_built}/module_tests" TQ_MODULES="${tq_built}/modules")
  target_link_libraries(module_tests PRIVATE ${TQ_LAYERS} tq_test_options gtest_main tq_test_support
    ${CMAKE_DL_LIBS})
  add_dependencies(module_tests lzw_module pdf_module test_module test_module_partial)
  if(TARGET ext_module)
    target_sources(module_tests PRIVATE tests/modules/ext_test.cpp)
    add_dependencies(module_tests ext_module)
  endif()
  if(WIN32)
    target_link_options(module_tests PRIVATE -static)
  endif()
  add_test(NAME module_tests COMMAND module_tests WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests)
  set_tests_properties(module_tests PROPERTIES TIMEOUT 300)
endif()

# The command line program. Where it cannot be driven by a script, a round trip has to do.
if(TARGET tarnquill_tool)
  if(CMAKE_CROSSCOMPILING)
    set(tq_scene ${PROJECT_BINARY_DIR}/scene)
    add_test(NAME tool.folders COMMAND ${CMAKE_COMMAND} -E make_directory ${tq_scene}/out)
    add_test(NAME tool.scene COMMAND make_scene scene)
    add_test(NAME tool.convert
      COMMAND tarnquill_tool convert -v --jobs 2 --code bmp scene/photo-24.bmp scene/page-1.bmp
              scene/out/Grüße-日本/)
    add_test(NAME tool.compare
      COMMAND ${CMAKE_COMMAND} -E compare_files ${tq_scene}/photo-24.bmp
              ${tq_scene}/out/Grüße-日本/photo-24.bmp)
    set_tests_properties(tool.folders PROPERTIES FIXTURES_SETUP tool_folders)
    set_tests_properties(tool.scene PROPERTIES
      FIXTURES_REQUIRED tool_folders FIXTURES_SETUP tool_scene)
    set_tests_properties(tool.convert PROPERTIES
      FIXTURES_REQUIRED "tool_folders;tool_scene" FIXTURES_SETUP tool_convert)
    set_tests_properties(tool.compare PROPERTIES FIXTURES_REQUIRED tool_convert)
    set_tests_properties(tool.scene tool.convert PROPERTIES
      WORKING_DIRECTORY ${PROJECT_BINARY_DIR} TIMEOUT 300)
  else()
    add_test(NAME tool
      COMMAND /usr/bin/python3 ${PROJECT_SOURCE_DIR}/tests/tool/tool_test.py
              $<TARGET_FILE:tarnquill_tool>)
    add_test(NAME tool.pdf
      COMMAND /usr/bin/python3 ${PROJECT_SOURCE_DIR}/tests/tool/pdf_test.py
              $<TARGET_FILE:tarnquill_tool>)
    set_tests_properties(tool tool.pdf PROPERTIES TIMEOUT 300)
  endif()
endif()
