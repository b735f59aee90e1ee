# Headers, libraries, the CMake package `zori` (target zori::zori, zori::zori_static) and zori.pc.
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS zori zori_static EXPORT zoriTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT zoriTargets NAMESPACE zori:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zori)
configure_package_config_file(cmake/zoriConfig.cmake.in ${PROJECT_BINARY_DIR}/zoriConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zori)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zoriConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zoriConfig.cmake ${PROJECT_BINARY_DIR}/zoriConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zori)
configure_file(cmake/zori.pc.in ${PROJECT_BINARY_DIR}/zori.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zori.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES README.md LICENSE CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL FILES_MATCHING PATTERN "*.md")
