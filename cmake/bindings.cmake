# Bindings of other languages: written from the header, compared with the library, and used. What needs
# a compiler or a package that is not installed is skipped.

set(TQ_BINDINGS ${PROJECT_BINARY_DIR}/bindings)
add_test(NAME bindings.write
  COMMAND ${TQ_PYTHON} ${PROJECT_SOURCE_DIR}/tools/make_bindings.py ${TQ_BINDINGS})
add_test(NAME bindings.exports
  COMMAND ${TQ_PYTHON} ${PROJECT_SOURCE_DIR}/tools/check_bindings.py ${TQ_BINDINGS}
          $<TARGET_FILE:tarnquill> --tools "${tq_tools}")
set_tests_properties(bindings.write PROPERTIES LABELS package FIXTURES_SETUP bindings)
set_tests_properties(bindings.exports PROPERTIES LABELS package FIXTURES_REQUIRED bindings)

# An instrumented library cannot be loaded by another program.
if(NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  function(tq_add_binding_test name)
    add_test(NAME bindings.${name} COMMAND ${ARGN} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests)
    set_tests_properties(bindings.${name} PROPERTIES
      LABELS package FIXTURES_REQUIRED bindings SKIP_RETURN_CODE 77 TIMEOUT 300)
  endfunction()

  tq_add_binding_test(python
    /usr/bin/python3 bindings/python_test.py ${TQ_BINDINGS} $<TARGET_FILE:tarnquill>)
  tq_add_binding_test(batch
    /usr/bin/python3 bindings/batch_test.py ${TQ_BINDINGS} $<TARGET_FILE:tarnquill>)
  foreach(language csharp pascal)
    tq_add_binding_test(${language}
      bindings/compiled.sh ${language} ${TQ_BINDINGS} $<TARGET_FILE:tarnquill>)
  endforeach()
endif()
