# Separately loaded modules.

function(tq_add_module target stem)
  add_library(${target} MODULE ${ARGN})
  set_target_properties(${target} PROPERTIES
    PREFIX "" OUTPUT_NAME ${stem} LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/modules/${target})
  if(NOT WIN32)
    set_target_properties(${target} PROPERTIES SUFFIX .so)
  endif()
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(${target} PRIVATE tq_options)
  if(NOT TQ_INSTRUMENTED)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
  endif()
  if(WIN32)
    target_link_options(${target} PRIVATE -static -static-libgcc -Wl,--kill-at)
  elseif(NOT TQ_INSTRUMENTED)
    target_link_options(${target} PRIVATE -Wl,-z,defs -static-libgcc)
  endif()
endfunction()

# One of the library's own, from its sources. Installed it has a folder of its own where the library
# looks for it, on Windows that of the library.
function(tq_add_own_module target stem)
  tq_add_module(${target} ${stem} ${ARGN})
  tq_add_version(${target} ${stem} "Module of Tarnquill")
  # What it does not call of these folders stays out of it.
  target_compile_options(${target} PRIVATE -ffunction-sections -fdata-sections)
  target_link_options(${target} PRIVATE -Wl,--gc-sections)
  if(WIN32)
    install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR})
  else()
    # For programs run from the build tree. On Windows that folder is the tests' as well, and some of
    # them need it not to be there.
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:${target}> $<TARGET_FILE_DIR:tarnquill>
      VERBATIM)
    install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tarnquill)
  endif()
endfunction()

tq_add_own_module(lzw_module trqvpl1 ${TQ_LZW_MODULE_SOURCES} ${TQ_MODULE_BASE_SOURCES})
tq_add_own_module(pdf_module pdfplug
  ${TQ_PDF_MODULE_SOURCES} ${TQ_PDF_PICTURE_SOURCES} ${TQ_MODULE_BASE_SOURCES} ${TQ_CODING_SOURCES})
target_link_libraries(pdf_module PRIVATE tq_png)
if(NOT WIN32)
  target_link_options(pdf_module PRIVATE -Wl,--as-needed)
  target_link_libraries(pdf_module PRIVATE m)
endif()

# More formats, by libraries of others: the system's, or for Windows static ones that are built here.
option(TQ_EXTENDED "Module of WebP, JPEG 2000, HEIF and JBIG2, where their libraries are installed" OFF)
if(TQ_EXTENDED AND WIN32)
  tq_build_dependency(extended TQ_EXTENDED tq_extended)
  add_library(tq_ext_libraries INTERFACE)
  target_include_directories(tq_ext_libraries SYSTEM INTERFACE ${tq_extended}/include)
  target_compile_definitions(tq_ext_libraries INTERFACE LIBHEIF_STATIC_BUILD OPJ_STATIC)
  foreach(name heif de265 webpdemux webp openjp2 jbig2dec)
    target_link_libraries(tq_ext_libraries INTERFACE ${tq_extended}/lib/lib${name}.a)
  endforeach()
elseif(TQ_EXTENDED)
  find_package(PkgConfig)
  if(PkgConfig_FOUND)
    pkg_check_modules(TQ_EXT IMPORTED_TARGET libwebp libwebpdemux libopenjp2 libheif jbig2dec)
  endif()
  if(TQ_EXT_FOUND)
    set(TQ_EXT_MAP ${PROJECT_SOURCE_DIR}/modules/ext/exports.map)
    add_library(tq_ext_libraries INTERFACE)
    target_link_libraries(tq_ext_libraries INTERFACE PkgConfig::TQ_EXT)
    target_link_options(tq_ext_libraries INTERFACE -Wl,--version-script,${TQ_EXT_MAP})
    set_target_properties(tq_ext_libraries PROPERTIES INTERFACE_LINK_DEPENDS ${TQ_EXT_MAP})
  else()
    message(STATUS "Not built: the module of more formats (tools/install_dependencies.sh extended)")
  endif()
endif()
if(TARGET tq_ext_libraries)
  tq_add_own_module(ext_module trqvext ${TQ_EXT_MODULE_SOURCES} ${TQ_MODULE_BASE_SOURCES})
  target_link_libraries(ext_module PRIVATE tq_ext_libraries)
  if(WIN32)
    # Two of them are in C++, and bring parts of its library that our own objects have as well.
    set_target_properties(ext_module PROPERTIES LINKER_LANGUAGE CXX)
    target_link_options(ext_module PRIVATE -Wl,--allow-multiple-definition)
  endif()
endif()
