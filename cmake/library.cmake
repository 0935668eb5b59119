# One object library per folder, one shared library from them.

function(tq_add_layer name)
  add_library(tq_${name} OBJECT ${ARGN})
  target_include_directories(tq_${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(tq_${name} PUBLIC TARNQUILL_BUILD)
  target_link_libraries(tq_${name} PRIVATE tq_options)
  set_target_properties(tq_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()

# A DLL travels with the programs that use it, so its size counts. What never looks at a pixel is compiled for size
# there: checks and settings, headers, tables and objects of files, layouts, drivers. Some of it hands on rows that
# others make. Whatever has a loop over pixels or coded bytes keeps -O2.
set(TQ_SMALL_SOURCES
  ${TQ_API_SOURCES}
  core/image_create.cpp
  core/texts.cpp
  dispatch/animation.cpp
  dispatch/copy_page.cpp
  dispatch/decode.cpp
  dispatch/detect.cpp
  dispatch/file_types.cpp
  dispatch/output.cpp
  dispatch/save.cpp
  dispatch/signatures.cpp
  formats/bmp/header.cpp
  formats/bmp/shown_header.cpp
  formats/dicom/data_set.cpp
  formats/fpx/storage.cpp
  formats/ica/content.cpp
  formats/ica/fields.cpp
  formats/jpeg/decode/exif.cpp
  formats/jpeg/decode/markers.cpp
  formats/jpeg/decode/stored.cpp
  formats/jpeg/encode/header.cpp
  formats/pdf/document.cpp
  formats/pdf/objects/file.cpp
  formats/pdf/objects/tables.cpp
  formats/pdf/read.cpp
  formats/pdf/write.cpp
  formats/pdf/writing/form.cpp
  formats/pdf/writing/layout.cpp
  formats/pdf/writing/page.cpp
  formats/pdf/writing/sections.cpp
  formats/pdf/writing/stored.cpp
  formats/plugin/plugin.cpp
  formats/tiff/append.cpp
  formats/tiff/encode.cpp
  formats/tiff/file.cpp
  formats/tiff/page.cpp
  formats/tiff/queries.cpp
  formats/tiff/stored.cpp
  formats/wmf/curves.cpp
  formats/wmf/decode.cpp
  formats/wmf/draw.cpp
  formats/wmf/objects.cpp
  formats/wmf/player.cpp
  formats/wmf/text.cpp
  platform/win32/file.cpp
  platform/win32/surface.cpp
  scan/files.cpp
  scan/options.cpp
  scan/sane_device.cpp
  scan/sane_session.cpp
  scan/scanner.cpp
  scan/twain_link.cpp
  scan/twain_session.cpp
  scan/twain_transfer.cpp
  show/draw.cpp
  show/plot.cpp
  show/view.cpp
  show/wipe.cpp)
if(WIN32)
  set_property(SOURCE ${TQ_SMALL_SOURCES} APPEND PROPERTY COMPILE_OPTIONS -Os)
endif()

if(WIN32)
  tq_add_layer(platform ${TQ_PLATFORM_SOURCES} ${TQ_PLATFORM_WIN32_SOURCES})
else()
  tq_add_layer(platform ${TQ_PLATFORM_SOURCES} ${TQ_PLATFORM_POSIX_SOURCES})
endif()
set(TQ_LAYERS tq_platform)
foreach(layer core io pixels coding formats process dispatch show scan api)
  string(TOUPPER ${layer} upper)
  if(TQ_${upper}_SOURCES)
    tq_add_layer(${layer} ${TQ_${upper}_SOURCES})
    list(APPEND TQ_LAYERS tq_${layer})
  endif()
endforeach()
# What the library itself has no use for, but its tests do.
tq_add_layer(pdf_pictures ${TQ_PDF_PICTURE_SOURCES})
target_link_libraries(tq_coding PRIVATE tq_png)
target_link_libraries(tq_formats PRIVATE tq_png)
list(APPEND TQ_LAYERS tq_png)  # for what links the objects

add_library(tarnquill SHARED)
add_library(tarnquill::tarnquill ALIAS tarnquill)
foreach(layer ${TQ_LAYERS})
  if(layer STREQUAL "tq_png")
    target_link_libraries(tarnquill PRIVATE tq_png)
  else()
    target_sources(tarnquill PRIVATE $<TARGET_OBJECTS:${layer}>)
  endif()
endforeach()
target_include_directories(tarnquill INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
set_target_properties(tarnquill PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINKER_LANGUAGE CXX)
if(NOT TQ_INSTRUMENTED)
  # Linked by the C driver and without what CMake would add for C++ objects, so that code which needs
  # the C++ run-time library does not link.
  set_target_properties(tarnquill PROPERTIES LINKER_LANGUAGE C)
  set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
endif()

tq_add_version(tarnquill tarnquill "Raster imaging library")

if(WIN32)
  # The export list follows from the header: names, in 32 bits with the bytes of their arguments.
  set(TQ_DEF ${PROJECT_BINARY_DIR}/tarnquill.def)
  set(tq_undecorated)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(tq_undecorated --undecorated)
  endif()
  add_custom_command(OUTPUT ${TQ_DEF}
    COMMAND ${TQ_PYTHON} ${PROJECT_SOURCE_DIR}/tools/check_exports.py --write-def ${TQ_DEF}
            ${tq_undecorated}
    DEPENDS include/tarnquill.h tools/check_exports.py tools/public_header.py
    VERBATIM)
  target_sources(tarnquill PRIVATE ${TQ_DEF})
  set_target_properties(tarnquill PROPERTIES PREFIX "" LINK_DEPENDS ${TQ_DEF})
  # The list names decorated symbols (name@bytes); the DLL's name table holds the bare names.
  target_link_options(tarnquill PRIVATE -static -static-libgcc -Wl,--kill-at -Wl,--gc-sections)
  # The linker's own import library would lose the decoration that callers refer to.
  add_custom_command(TARGET tarnquill POST_BUILD
    COMMAND ${CMAKE_DLLTOOL} --kill-at --input-def ${TQ_DEF} --dllname $<TARGET_FILE_NAME:tarnquill>
            --output-lib $<TARGET_LINKER_FILE:tarnquill>
    VERBATIM)
else()
  set(TQ_MAP ${PROJECT_SOURCE_DIR}/exports.map)
  set_target_properties(tarnquill PROPERTIES LINK_DEPENDS ${TQ_MAP})
  target_link_options(tarnquill PRIVATE -Wl,--version-script,${TQ_MAP} -Wl,--as-needed)
  if(NOT TQ_INSTRUMENTED)
    target_link_options(tarnquill PRIVATE -Wl,-z,defs -static-libgcc)
  endif()
  target_link_libraries(tarnquill PRIVATE m)
endif()

# For programs that want no shared library beside them. Their linker finds the other libraries.
option(TQ_STATIC "Static library, too" OFF)
if(TQ_STATIC)
  add_library(tarnquill_static STATIC)
  add_library(tarnquill::tarnquill_static ALIAS tarnquill_static)
  foreach(layer ${TQ_LAYERS})
    if(NOT layer STREQUAL "tq_png")
      target_sources(tarnquill_static PRIVATE $<TARGET_OBJECTS:${layer}>)
    endif()
  endforeach()
  target_include_directories(tarnquill_static INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
  target_link_libraries(tarnquill_static INTERFACE $<BUILD_INTERFACE:tq_png>)
  if(TQ_PNG)
    target_link_libraries(tarnquill_static INTERFACE $<INSTALL_INTERFACE:PNG::PNG>)
  endif()
  if(NOT WIN32)
    target_link_libraries(tarnquill_static INTERFACE m)
  endif()
  set_target_properties(tarnquill_static PROPERTIES OUTPUT_NAME tarnquill LINKER_LANGUAGE C)
endif()
