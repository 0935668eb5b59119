# Fuzz targets. With TQ_LIBFUZZER (preset fuzz) they are libFuzzer programs; otherwise a small main
# replays files through them, and a test runs the seed corpus that make_seeds writes.

option(TQ_FUZZ "Build the fuzz targets" OFF)
option(TQ_LIBFUZZER "Link the fuzz targets with libFuzzer" OFF)
add_custom_target(fuzzers)

if(TQ_FUZZ)
  if(TQ_FUZZ_SEED_SOURCES)
    add_executable(make_seeds ${TQ_FUZZ_SEED_SOURCES})
    target_link_libraries(make_seeds PRIVATE ${TQ_LAYERS} tq_warnings)
    if(TARGET tq_test_support)
      target_link_libraries(make_seeds PRIVATE tq_test_support)
    endif()
    set(TQ_SEEDS ${PROJECT_BINARY_DIR}/seeds)
    add_custom_command(OUTPUT ${TQ_SEEDS}.stamp
      COMMAND ${CMAKE_COMMAND} -E rm -rf ${TQ_SEEDS}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${TQ_SEEDS}
      COMMAND make_seeds ${TQ_SEEDS} ${PROJECT_SOURCE_DIR}/tests/corpus
      COMMAND ${CMAKE_COMMAND} -E touch ${TQ_SEEDS}.stamp
      DEPENDS make_seeds tests/corpus/digests.txt
      COMMENT "Writing the seed corpus"
      VERBATIM)
    add_custom_target(seeds ALL DEPENDS ${TQ_SEEDS}.stamp)
  endif()

  foreach(name ${TQ_FUZZERS})
    add_executable(${name} fuzz/${name}.cpp ${TQ_${name}_SOURCES})
    target_link_libraries(${name} PRIVATE ${TQ_LAYERS} tq_warnings)
    if(TARGET tq_test_support)
      target_link_libraries(${name} PRIVATE tq_test_support)
    endif()
    add_dependencies(fuzzers ${name} seeds)
    if(TQ_LIBFUZZER)
      target_sources(${name} PRIVATE fuzz/libfuzzer_main.cpp)
      target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    else()
      target_sources(${name} PRIVATE fuzz/replay_main.cpp)
    endif()
    if(TQ_FUZZ_SEED_SOURCES)
      string(REPLACE "_fuzzer" "" folder ${name})
      add_test(NAME fuzz.${name}.seeds
        COMMAND ${name} $<$<BOOL:${TQ_LIBFUZZER}>:-runs=0> ${TQ_SEEDS}/${folder}
        COMMAND_EXPAND_LISTS)
      set_tests_properties(fuzz.${name}.seeds PROPERTIES LABELS fuzz TIMEOUT 300)
    endif()
  endforeach()

  foreach(name pdf_fuzzer pdf_repair_fuzzer)
    target_link_libraries(${name} PRIVATE tq_pdf_pictures)
  endforeach()
  # Beside the module, so that its formats are decoded as well.
  set_target_properties(decode_fuzzer PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/modules/lzw_module)
  add_dependencies(decode_fuzzer lzw_module)
  # Beside the module that does what it is told, and told where the true one is.
  tq_add_module(script_module trqvpl1 fuzz/script_module.cpp)
  set_target_properties(script_module PROPERTIES LINKER_LANGUAGE CXX)
  set_target_properties(module_fuzzer PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/modules/script_module)
  target_compile_definitions(module_fuzzer PRIVATE TQ_LZW_MODULE="$<TARGET_FILE:lzw_module>")
  target_link_libraries(module_fuzzer PRIVATE ${CMAKE_DL_LIBS})
  add_dependencies(module_fuzzer script_module lzw_module)
endif()
