# The installed package: one header, the library, a CMake package and a pkg-config file. All paths
# in it are relative, so that the installed tree can be moved.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TQ_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tarnquill)

install(TARGETS tarnquill EXPORT tarnquillTargets)
set(TQ_FIND_DEPENDENCIES)
if(TQ_STATIC)
  install(TARGETS tarnquill_static EXPORT tarnquillTargets)
  if(TQ_PNG)
    set(TQ_FIND_DEPENDENCIES "find_package(PNG QUIET)")  # who takes the shared library needs none
  endif()
endif()
install(FILES include/tarnquill.h include/tarnquill.hpp include/tarnquill_plugin.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT tarnquillTargets NAMESPACE tarnquill:: DESTINATION ${TQ_CMAKE_DIR})

file(CONFIGURE OUTPUT tarnquillConfig.cmake @ONLY
  CONTENT [[@TQ_FIND_DEPENDENCIES@
include("${CMAKE_CURRENT_LIST_DIR}/tarnquillTargets.cmake")
]])
write_basic_package_version_file(tarnquillConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/tarnquillConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/tarnquillConfigVersion.cmake
  DESTINATION ${TQ_CMAKE_DIR})

# What a static library leaves to whoever links it.
set(TQ_PRIVATE_LIBS)
if(TQ_PNG)
  string(APPEND TQ_PRIVATE_LIBS " -lpng -lz")
endif()
if(NOT WIN32)
  string(APPEND TQ_PRIVATE_LIBS " -lm")
endif()

# From the folder of the .pc file back to the prefix.
file(RELATIVE_PATH TQ_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/tarnquill.pc.in tarnquill.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tarnquill.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
