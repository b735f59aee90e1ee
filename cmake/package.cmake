# Debian packages of the components (scripts/package.sh).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zori)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "zori developers <developers@zori.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development programs checking documentation)
if(TARGET zori_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/src)

set(zori_version ${PROJECT_VERSION}-1)
string(CONCAT zori_about "zori works on rectangular regions of images in the caller's memory:\n"
  "arithmetic, conversion, thresholds, tables, statistics, filters, resizing,\n"
  "warping, transforms, correlation.")
file(READ ${PROJECT_SOURCE_DIR}/LICENSE zori_license)
string(REGEX REPLACE "^.*\n\n(Permission)" "\\1" zori_license "${zori_license}")
string(STRIP "${zori_license}" zori_license)
string(REPLACE "\n\n" "\n.\n" zori_license "${zori_license}")
string(REPLACE "\n" "\n " zori_license " ${zori_license}")

# What the archive asks of every package: who may copy it, and what changed.
find_program(GZIP gzip)
file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md zori_released REGEX "^## [0-9]")
list(GET zori_released 0 zori_released)
string(REGEX REPLACE "^## .* - " "" zori_released "${zori_released}")
execute_process(COMMAND date --utc --rfc-email --date "${zori_released} 12:00 UTC" OUTPUT_VARIABLE zori_released
  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
function(zori_package component package section short long)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_DESCRIPTION "image-processing primitives, ${short}\n${zori_about}\n\n${long}" PARENT_SCOPE)
  set(notes ${CMAKE_BINARY_DIR}/package/${package})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/copyright.in ${notes}/copyright @ONLY)
  if(GZIP)
    file(WRITE ${notes}/changelog.Debian
      "zori (${zori_version}) unstable; urgency=medium\n\n  * The changes stand in CHANGELOG.md of the package zori-doc.\n\n"
      " -- ${CPACK_PACKAGE_CONTACT}  ${zori_released}\n")
    execute_process(COMMAND ${GZIP} -9nf ${notes}/changelog.Debian)
    install(FILES ${notes}/changelog.Debian.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component}
      EXCLUDE_FROM_ALL)
  endif()
  install(FILES ${notes}/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component}
    EXCLUDE_FROM_ALL)
  if(ARGC GREATER 5) # a shared library: what depends on it, and the loader's cache
    string(REGEX REPLACE "^(.*) (.*)$" "\\1 \\2 ${package} (>= ${PROJECT_VERSION})\n" shlibs "${ARGV5}")
    file(WRITE ${notes}/shlibs "${shlibs}")
    file(WRITE ${notes}/triggers "activate-noawait ldconfig\n")
    set(CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA "${notes}/shlibs;${notes}/triggers" PARENT_SCOPE)
  endif()
endfunction()
zori_package(runtime libzoriq7-5.3-5 libs "shared library"
  "This package holds the shared library, in two builds of which the loader\ntakes the right one." "libzoriq7-5.3 5")
zori_package(development libzori-dev libdevel "development files"
  "This package holds the headers, the static archive, and files for CMake\nand pkg-config.")
zori_package(programs zori-tools utils "programs"
  "This package holds zori-info, which tells what is installed.")
zori_package(checking libzori-check5 libs "checking twin"
  "This package holds a library that looks at every call before the ordinary\nlibrary gets it." "libzori-check 5")
zori_package(documentation zori-doc doc "documentation"
  "This package holds the guides, the reference of all functions, examples.")
zori_package(python python3-zori python "Python module"
  "This package holds the module zori, which works on NumPy arrays where they lie.")
foreach(key DEVELOPMENT PROGRAMS CHECKING)
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "libzoriq7-5.3-5 (= ${zori_version})")
endforeach()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libzori-check5, zori-doc, zori-tools")
# the stable ABI of Python 3.11; NumPy makes the arrays that calls return
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "libzoriq7-5.3-5 (= ${zori_version}), python3 (>= 3.11), python3-numpy")
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
include(CPack)
