# What the properties of a DLL or a program say on Windows.

if(WIN32)
  enable_language(RC)
endif()

function(tq_add_version target stem description)
  if(NOT WIN32)
    return()
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(tq_file_type VFT_APP)
    set(tq_ending exe)
  else()
    set(tq_file_type VFT_DLL)
    set(tq_ending dll)
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${target}.rc @ONLY)
  # An object library of its own: the resource compiler does not know the target's other options.
  add_library(${target}_version OBJECT ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:${target}_version>)
endfunction()
