// The version record.
//
// "q7" is the name of the class of processors that the library is made for, those with SSE3. It stands in the record
// and in the names of the library files at every width of addresses and vectors.
#include "zori/version.h"
#include "zori/core.h"

static const ZorVersionRecord versionRecord = {
  ZORI_VERSION_MAJOR,    ZORI_VERSION_MINOR,         85,           502, {'q', '7', 0, 0},
  "libzoriq7-5.3.dylib", "5.3 Update 2 build 85.21", "Feb 18 2008"};

const ZorVersionRecord* zoriGetLibVersion(void) { return &versionRecord; }
