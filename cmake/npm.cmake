# The npm package's one file of WebAssembly: the library, its own modules, and what index.mjs calls.

# As separate as a library that is loaded: all of it in a namespace of the module's name. Entries that another
# module has as well bear that name, too.
function(tq_add_linked_module stem)
  add_library(${stem} OBJECT ${ARGN})
  target_include_directories(${stem} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(${stem} PRIVATE tq_options tq_png)
  target_compile_definitions(${stem} PRIVATE tq=${stem} set_callbacks=${stem}_set_callbacks)
endfunction()
tq_add_linked_module(trqvpl1 ${TQ_LZW_MODULE_SOURCES} ${TQ_MODULE_BASE_SOURCES})
tq_add_linked_module(pdfplug
  ${TQ_PDF_MODULE_SOURCES} ${TQ_PDF_PICTURE_SOURCES} ${TQ_MODULE_BASE_SOURCES} ${TQ_CODING_SOURCES})

# The C library, which Debian's Emscripten has as sources.
tq_build_dependency(c TQ_NPM tq_c)

add_executable(tarnquill_npm bindings/npm/wrapper.c modules/linked.cpp
  $<TARGET_OBJECTS:trqvpl1> $<TARGET_OBJECTS:pdfplug>)
target_include_directories(tarnquill_npm PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
foreach(layer ${TQ_LAYERS})
  target_link_libraries(tarnquill_npm PRIVATE ${layer})
endforeach()
target_link_libraries(tarnquill_npm PRIVATE tq_options)
# By the C driver and without the C++ library, which nothing here needs. Growing memory has a limit, and a stack
# that is too deep ends at address 0 instead of in other data.
set_target_properties(tarnquill_npm PROPERTIES
  LINKER_LANGUAGE C OUTPUT_NAME tarnquill SUFFIX .wasm)
target_link_options(tarnquill_npm PRIVATE
  --em-config ${tq_c}/config --no-entry -O2 -sALLOW_MEMORY_GROWTH -sAUTO_NATIVE_LIBRARIES=0 -sDEFAULT_TO_CXX=0
  -sMAXIMUM_MEMORY=1GB -sTOTAL_STACK=1MB -Wl,--stack-first)

# The package's folder, as it is packed.
set(TQ_NPM_PACKAGE ${PROJECT_BINARY_DIR}/package)
set(tq_npm_files index.d.ts index.mjs README.md)
list(TRANSFORM tq_npm_files PREPEND ${PROJECT_SOURCE_DIR}/bindings/npm/)
configure_file(bindings/npm/package.json.in package/package.json @ONLY)
configure_file(LICENSE package/licences/tarnquill.txt COPYONLY)
configure_file(${tq_png_root}/licences/libpng1.6 package/licences/libpng.txt COPYONLY)
configure_file(${tq_png_root}/licences/zlib package/licences/zlib.txt COPYONLY)
configure_file(${EMSCRIPTEN_ROOT_PATH}/system/lib/libc/musl/COPYRIGHT package/licences/musl.txt COPYONLY)
add_custom_target(npm ALL
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${tq_npm_files} $<TARGET_FILE:tarnquill_npm> ${TQ_NPM_PACKAGE}
  DEPENDS tarnquill_npm ${tq_npm_files}
  VERBATIM)

# Node.js and Chromium see what the library of this system sees, when that has been built.
if(PROJECT_IS_TOP_LEVEL)
  include(CTest)
endif()
if(BUILD_TESTING)
  find_program(TQ_NODE NAMES node nodejs)
  set(tq_bindings ${PROJECT_BINARY_DIR}/bindings)
  set(tq_expected ${PROJECT_BINARY_DIR}/expected.json)
  function(tq_add_npm_test name)
    add_test(NAME npm.${name} COMMAND ${ARGN} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests)
    set_tests_properties(npm.${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600)
  endfunction()
  tq_add_npm_test(write_bindings ${TQ_PYTHON} ${PROJECT_SOURCE_DIR}/tools/make_bindings.py ${tq_bindings})
  tq_add_npm_test(expected
    ${TQ_PYTHON} bindings/npm_expected.py ${tq_bindings} ${PROJECT_SOURCE_DIR}/build/release/lib/libtarnquill.so
    ${tq_expected})
  tq_add_npm_test(node ${TQ_NODE} bindings/npm_test.mjs ${TQ_NPM_PACKAGE} ${tq_expected})
  tq_add_npm_test(chromium ${TQ_PYTHON} bindings/npm_browser_test.py ${TQ_NPM_PACKAGE} ${tq_expected})
  set_tests_properties(npm.write_bindings PROPERTIES FIXTURES_SETUP npm_bindings)
  set_tests_properties(npm.expected PROPERTIES FIXTURES_REQUIRED npm_bindings FIXTURES_SETUP npm_expected)
  set_tests_properties(npm.node npm.chromium PROPERTIES FIXTURES_REQUIRED npm_expected)
endif()
