# The installed package: one header, the library, a CMake package and a pkg-config file. All paths
# in it are relative, so that the installed tree can be moved.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TQ_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tarnquill)

install(TARGETS tarnquill EXPORT tarnquillTargets)
install(FILES include/tarnquill.h include/tarnquill_plugin.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT tarnquillTargets NAMESPACE tarnquill:: DESTINATION ${TQ_CMAKE_DIR})

file(CONFIGURE OUTPUT tarnquillConfig.cmake @ONLY
  CONTENT [[include("${CMAKE_CURRENT_LIST_DIR}/tarnquillTargets.cmake")
]])
write_basic_package_version_file(tarnquillConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/tarnquillConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/tarnquillConfigVersion.cmake
  DESTINATION ${TQ_CMAKE_DIR})

# From the folder of the .pc file back to the prefix.
file(RELATIVE_PATH TQ_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/tarnquill.pc.in tarnquill.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tarnquill.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
