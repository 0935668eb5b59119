# One object library per folder.

function(tq_add_layer name)
  add_library(tq_${name} OBJECT ${ARGN})
  target_include_directories(tq_${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(tq_${name} PUBLIC TARNQUILL_BUILD)
  target_link_libraries(tq_${name} PRIVATE tq_options)
  if(NOT EMSCRIPTEN)
    set_target_properties(tq_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  endif()
endfunction()

# A DLL travels with the programs that use it, so its size counts. What never looks at a pixel is compiled for size
# there: checks and settings, headers, tables and objects of files, layouts, drivers. Some of it hands on rows that
# others make. Whatever has a loop over pixels or coded bytes keeps -O2.
set(TQ_SMALL_SOURCES
  ${TQ_API_SOURCES}
  core/image_create.cpp
  core/texts.cpp
  dispatch/animation.cpp
  dispatch/convert_page.cpp
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
elseif(EMSCRIPTEN)
  tq_add_layer(platform ${TQ_PLATFORM_SOURCES} ${TQ_PLATFORM_WASM_SOURCES})
else()
  tq_add_layer(platform ${TQ_PLATFORM_SOURCES} ${TQ_PLATFORM_POSIX_SOURCES})
endif()
set(TQ_LAYERS tq_platform)
set(tq_folders core io pixels coding formats process dispatch show scan api)
if(EMSCRIPTEN)  # reads and shows
  list(REMOVE_ITEM tq_folders process scan)
  list(REMOVE_ITEM TQ_API_SOURCES api/draw.cpp api/process.cpp api/scan.cpp)
endif()
foreach(layer ${tq_folders})
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
