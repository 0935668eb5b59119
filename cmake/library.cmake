# One shared library from the objects of all folders.

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
  # The linker's own import library would lose the decoration that callers refer to. Symbols in it bear its path.
  add_custom_command(TARGET tarnquill POST_BUILD
    COMMAND ${CMAKE_DLLTOOL} --kill-at --input-def ${TQ_DEF} --dllname $<TARGET_FILE_NAME:tarnquill>
            --output-lib $<TARGET_LINKER_FILE_NAME:tarnquill>
    WORKING_DIRECTORY $<TARGET_LINKER_FILE_DIR:tarnquill>
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
