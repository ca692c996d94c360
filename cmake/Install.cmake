# make install: library, headers under include/quorvane/ (the only entry in include/), a CMake
# package with the find module of its dependency, and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS quorvane_static quorvane_shared EXPORT QuorvaneTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES quorvane.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvane)
foreach(dir IN LISTS QUORVANE_SUBSYSTEMS)
  install(DIRECTORY ${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvane/${dir} FILES_MATCHING PATTERN "*.h")
endforeach()

install(EXPORT QuorvaneTargets NAMESPACE Quorvane:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quorvane)
configure_package_config_file(cmake/QuorvaneConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/QuorvaneConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quorvane)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QuorvaneConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QuorvaneConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/QuorvaneConfigVersion.cmake
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/FindTinyXML.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quorvane)

# The .pc file finds its prefix from its own location, so `cmake --install --prefix DIR` and
# DESTDIR staging give a correct file without reconfiguring.
file(RELATIVE_PATH QUORVANE_PC_TO_PREFIX
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QUORVANE_PC_TO_PREFIX "${QUORVANE_PC_TO_PREFIX}")
configure_file(cmake/quorvane.pc.in ${CMAKE_CURRENT_BINARY_DIR}/quorvane.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quorvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
