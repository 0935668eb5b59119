# What is read beside the program and the header, made from what these say: the manual page, completion
# for bash and zsh, the header as HTML. As far as the tools for it are there (group "manual" of
# tools/install_dependencies.sh), and the program runs here.

option(TQ_MANUAL "Manual page, completion, and the header as HTML" ON)
find_program(TQ_HELP2MAN help2man)
find_program(TQ_DOXYGEN doxygen)
set(tq_manual ${PROJECT_BINARY_DIR}/manual)
set(tq_manual_script ${PROJECT_SOURCE_DIR}/tools/make_manual.py)

if(TQ_MANUAL AND TQ_HELP2MAN AND TARGET tarnquill_tool AND NOT TQ_INSTRUMENTED AND NOT CMAKE_CROSSCOMPILING)
  add_custom_command(
    OUTPUT ${tq_manual}/man/tarnquill.1 ${tq_manual}/completion/tarnquill
           ${tq_manual}/completion/_tarnquill
    COMMAND ${TQ_PYTHON} ${tq_manual_script} $<TARGET_FILE:tarnquill_tool> ${tq_manual}
    DEPENDS tarnquill_tool ${tq_manual_script} tools/program_help.py
    VERBATIM)
  add_custom_target(manual ALL DEPENDS ${tq_manual}/man/tarnquill.1)
  add_dependencies(programs manual)
  install(FILES ${tq_manual}/man/tarnquill.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${tq_manual}/completion/tarnquill
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${tq_manual}/completion/_tarnquill
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endif()

if(TQ_MANUAL AND TQ_DOXYGEN AND NOT TQ_INSTRUMENTED)
  add_custom_command(OUTPUT ${tq_manual}/html/index.html
    COMMAND ${TQ_PYTHON} ${tq_manual_script} --html ${tq_manual}
    DEPENDS include/tarnquill.h include/tarnquill_plugin.h docs/Doxyfile tools/doxygen_filter.py
            ${tq_manual_script}
    VERBATIM)
  add_custom_target(header_manual ALL DEPENDS ${tq_manual}/html/index.html)
  add_dependencies(programs header_manual)
  install(DIRECTORY ${tq_manual}/html DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
