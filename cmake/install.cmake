# Headers, libraries, the CMake package `zori` (target zori::zori, zori::zori_static) and zori.pc.
# Components, which the packages are made of: runtime, development, programs, documentation.
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h"
  PATTERN "*.hpp")
install(TARGETS zori zori_static EXPORT zoriTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
if(ZORI_WIDE) # the loader looks there by itself
  install(TARGETS zori_wide LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/x86-64-v3
    COMPONENT runtime NAMELINK_COMPONENT development)
endif()
install(EXPORT zoriTargets NAMESPACE zori:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zori
  COMPONENT development)
configure_package_config_file(cmake/zoriConfig.cmake.in ${PROJECT_BINARY_DIR}/zoriConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zori)
# -m32 is an option of this build and not of the compiler, so CMake does not know the width of what it builds.
function(zori_package_version)
  if(ZORI_32BIT)
    set(CMAKE_SIZEOF_VOID_P 4)
  endif()
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/zoriConfigVersion.cmake COMPATIBILITY SameMajorVersion)
endfunction()
zori_package_version()
install(FILES ${PROJECT_BINARY_DIR}/zoriConfig.cmake ${PROJECT_BINARY_DIR}/zoriConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zori COMPONENT development)
# zori.pc finds the prefix from its own place, so that an installation may move, unless a folder is absolute.
set(ZORI_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH ZORI_PC_UP "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" ZORI_PC_UP "${ZORI_PC_UP}")
  set(ZORI_PC_PREFIX "\${pcfiledir}/${ZORI_PC_UP}")
endif()
foreach(folder LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    set(ZORI_PC_${folder} "${CMAKE_INSTALL_${folder}}")
  else()
    set(ZORI_PC_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
  endif()
endforeach()
configure_file(cmake/zori.pc.in ${PROJECT_BINARY_DIR}/zori.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zori.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
if(TARGET zori_info)
  install(TARGETS zori_info RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
  find_program(GZIP gzip)
  if(GZIP)
    execute_process(COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/programs/zori-info.1
      OUTPUT_FILE ${PROJECT_BINARY_DIR}/zori-info.1.gz)
    install(FILES ${PROJECT_BINARY_DIR}/zori-info.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT programs)
  endif()
endif()
if(TARGET zori_check)
  install(TARGETS zori_check LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT checking NAMELINK_COMPONENT development)
  install(FILES check/zori_check.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()
# The pages name files of the source tree by paths that hold here, too.
install(FILES README.md LICENSE CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png" PATTERN "site" EXCLUDE)
install(DIRECTORY examples api DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
if(EXISTS ${PROJECT_SOURCE_DIR}/build/docs/html/index.html) # scripts/docs.sh
  install(DIRECTORY build/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
endif()
