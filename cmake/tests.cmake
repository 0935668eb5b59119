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

if(TQ_TEST_SUPPORT_SOURCES)
  add_library(tq_test_support STATIC ${TQ_TEST_SUPPORT_SOURCES})
  target_include_directories(tq_test_support PUBLIC
    ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(tq_test_support PUBLIC TARNQUILL_BUILD)
  target_link_libraries(tq_test_support PUBLIC gmock PRIVATE tq_warnings)
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

foreach(folder platform core io formats process dispatch)
  string(TOUPPER ${folder} upper)
  if(TQ_${upper}_TESTS)
    add_executable(${folder}_tests ${TQ_${upper}_TESTS})
    target_link_libraries(${folder}_tests PRIVATE ${TQ_LAYERS} tq_warnings gmock_main)
    if(TARGET tq_test_support)
      target_link_libraries(${folder}_tests PRIVATE tq_test_support)
    endif()
    if(WIN32)
      target_link_options(${folder}_tests PRIVATE -static)
    endif()
    tq_register_tests(${folder}_tests)
  endif()
endforeach()

if(TQ_API_TESTS)
  add_executable(api_tests ${TQ_API_TESTS})
  target_link_libraries(api_tests PRIVATE tarnquill tq_warnings gmock_main)
  if(WIN32)
    target_link_options(api_tests PRIVATE -static)
  endif()
  tq_register_tests(api_tests)
endif()

# Against libtiff, where it is installed for the target.
if(TQ_TIFF_TESTS AND NOT CMAKE_CROSSCOMPILING AND CMAKE_SIZEOF_VOID_P EQUAL 8)
  find_package(TIFF QUIET)
  if(TIFF_FOUND)
    add_executable(tiff_tests ${TQ_TIFF_TESTS})
    target_link_libraries(tiff_tests PRIVATE
      ${TQ_LAYERS} tq_warnings tq_test_support gmock_main TIFF::TIFF)
    tq_register_tests(tiff_tests)
  endif()
endif()
