# Checks of the sources and of the built library, as tests.

option(TQ_STATIC_CHECKS "Register the checks that look at sources only" OFF)

if(TQ_STATIC_CHECKS)
  add_test(NAME static.layers COMMAND ${TQ_PYTHON} tools/check_layers.py)
  add_test(NAME static.compatibility COMMAND ${TQ_PYTHON} tools/check_compatibility.py)
  add_test(NAME static.size COMMAND ${TQ_PYTHON} tools/check_size.py)
  add_test(NAME static.format COMMAND tools/check_format.sh)
  set_tests_properties(static.layers static.compatibility static.size static.format PROPERTIES
    LABELS static WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
endif()

# Header and built library name the same functions.
set(tq_plain --plain)  # imports and initialisers of an instrumented build are not the library's own
if(TQ_INSTRUMENTED)
  set(tq_plain)
endif()
string(REGEX REPLACE "objdump$" "" tq_tools "${CMAKE_OBJDUMP}")
add_test(NAME package.exports
  COMMAND ${TQ_PYTHON} tools/check_exports.py --library $<TARGET_FILE:tarnquill>
          --tools "${tq_tools}" ${tq_plain}
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
set_tests_properties(package.exports PROPERTIES LABELS "static;package")

# The digests that every build is held against are those of the model: for who changes either.
if(NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME model COMMAND ${TQ_PYTHON} tests/process/models/make_digests.py --check
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(model PROPERTIES LABELS model TIMEOUT 600)
endif()

# A program in C against the installed package.
if(NOT TQ_INSTRUMENTED)
  add_test(NAME package.consumer
    COMMAND ${PROJECT_SOURCE_DIR}/tests/package/run.sh ${PROJECT_BINARY_DIR}
            "${CMAKE_C_COMPILER}" "${CMAKE_CXX_COMPILER}" "${CMAKE_TOOLCHAIN_FILE}"
            ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(package.consumer PROPERTIES LABELS package TIMEOUT 300)
endif()

# Where memory ends is not to be seen in an instrumented program.
if(TARGET tarnquill_tool AND NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME package.tool
    COMMAND ${TQ_PYTHON} ${PROJECT_SOURCE_DIR}/tests/tool/tool_test.py
            $<TARGET_FILE:tarnquill_tool> Destinations)
  set_tests_properties(package.tool PROPERTIES LABELS package TIMEOUT 300)
endif()

# What documents, help and manual say, with the installed program.
if(TARGET tarnquill_tool AND NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME package.documents
    COMMAND ${TQ_PYTHON} ${PROJECT_SOURCE_DIR}/tools/check_documents.py ${PROJECT_BINARY_DIR})
  add_test(NAME package.manual
    COMMAND ${TQ_PYTHON} ${PROJECT_SOURCE_DIR}/tests/package/manual_test.py
            $<TARGET_FILE:tarnquill_tool>)
  set_tests_properties(package.documents package.manual PROPERTIES
    LABELS package TIMEOUT 300 SKIP_RETURN_CODE 77)
endif()

# The demonstration's page, with what it names.
if(TARGET demonstration)
  add_test(NAME package.gallery
    COMMAND ${TQ_PYTHON} tests/gallery/page_test.py ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(package.gallery PROPERTIES LABELS package TIMEOUT 300)
endif()

# Comparisons with other programs; skipped where those are not installed.
if(NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  add_executable(ccitt_coder tests/peers/ccitt_coder.cpp)
  target_link_libraries(ccitt_coder PRIVATE ${TQ_LAYERS} tq_warnings tq_test_support)
  foreach(peers ccitt image jpeg pages pdf pdf_writing printing reading tiff)
    add_test(NAME peers.${peers}
      COMMAND ${TQ_PYTHON} tests/peers/${peers}_peers.py $<TARGET_FILE:tarnquill>
              $<TARGET_FILE:lzw_module> $<TARGET_FILE:ccitt_coder>
      WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
    set_tests_properties(peers.${peers} PROPERTIES LABELS peers SKIP_RETURN_CODE 77 TIMEOUT 300)
  endforeach()
endif()
