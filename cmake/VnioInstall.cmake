# Installs the library, its public headers, a CMake package (VnIO::vnio) and a pkg-config file.
include(CMakePackageConfigHelpers)
install(TARGETS vnio EXPORT VnIOTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(dir interfaces/basepool/include/basepool interfaces/vnbase/include/vnbase interfaces/vn3dbase/include/vn3dbase vnio/include/vnio)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endforeach()
install(EXPORT VnIOTargets NAMESPACE VnIO:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VnIO)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VnIOConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VnIOConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VnIO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VnIOConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VnIOConfig.cmake ${PROJECT_BINARY_DIR}/VnIOConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VnIO)
configure_file(${PROJECT_SOURCE_DIR}/cmake/vnio.pc.in ${PROJECT_BINARY_DIR}/vnio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vnio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
