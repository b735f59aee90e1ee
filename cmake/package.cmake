# Debian packages of the four components (scripts/package.sh).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zori)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "zori developers <zori@localhost>")
set(CPACK_PACKAGE_HOMEPAGE_URL "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development programs documentation)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/src)

set(zori_about "zori works on rectangular regions of images in the caller's memory: arithmetic, conversion,\n"
  " thresholds, tables, statistics, filters, resizing, warping, transforms, correlation.")
string(CONCAT zori_about ${zori_about})
file(READ ${PROJECT_SOURCE_DIR}/LICENSE zori_license)
string(REGEX REPLACE "^.*\n\n(Permission)" "\\1" zori_license "${zori_license}")
string(STRIP "${zori_license}" zori_license)
string(REPLACE "\n\n" "\n.\n" zori_license "${zori_license}")
string(REPLACE "\n" "\n " zori_license " ${zori_license}")
foreach(entry
    "runtime|libzoriq7-5.3-5|libs|image-processing primitives, shared library|the shared library, in two builds of which the loader takes the right one"
    "development|libzori-dev|libdevel|image-processing primitives, development files|headers, the static archive, and files for CMake and pkg-config"
    "programs|zori-tools|utils|image-processing primitives, programs|zori-info, which tells what is installed, and the checking twin of the library"
    "documentation|zori-doc|doc|image-processing primitives, documentation|the guides, the reference of all functions, examples")
  string(REPLACE "|" ";" entry "${entry}")
  list(GET entry 0 component)
  list(GET entry 1 package)
  list(GET entry 2 section)
  list(GET entry 3 short)
  list(GET entry 4 long)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${short}\n ${zori_about}\n .\n This package holds ${long}.")
  # what the archive asks of every package
  set(notes ${CMAKE_BINARY_DIR}/package/${package})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/copyright.in ${notes}/copyright @ONLY)
  file(WRITE ${notes}/changelog.Debian
    "zori (${PROJECT_VERSION}) unstable; urgency=medium\n\n  * The changes stand in CHANGELOG.md of the package zori-doc.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  Mon, 23 Nov 2026 12:00:00 +0000\n")
  find_program(GZIP gzip)
  if(GZIP)
    execute_process(COMMAND ${GZIP} -9nf ${notes}/changelog.Debian)
    install(FILES ${notes}/copyright ${notes}/changelog.Debian.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
      COMPONENT ${component})
  endif()
endforeach()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzoriq7-5.3-5 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "zori-doc, zori-tools")
include(CPack)
