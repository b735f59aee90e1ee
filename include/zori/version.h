/* Version of these headers, for the preprocessor. What is loaded tells zoriGetLibVersion (zori/core.h).
 *
 * The one place that tells the version: the build, the packages and the library's own record take it from here. */
#ifndef ZORI_VERSION_H
#define ZORI_VERSION_H

/* The shared library of one major version runs programs that were linked with any other of it; the minor version grows
 * with new functions. */
#define ZORI_VERSION_MAJOR 5
#define ZORI_VERSION_MINOR 3
#define ZORI_VERSION_PATCH 0
#define ZORI_VERSION "5.3.0"

/* Versions as numbers that can be compared: #if ZORI_VERSION_NUMBER >= ZORI_MAKE_VERSION(5, 3, 0) */
#define ZORI_MAKE_VERSION(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
#define ZORI_VERSION_NUMBER ZORI_MAKE_VERSION(ZORI_VERSION_MAJOR, ZORI_VERSION_MINOR, ZORI_VERSION_PATCH)

#endif
