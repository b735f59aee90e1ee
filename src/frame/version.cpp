// The version record.
#include "zori/core.h"

static const ZorVersionRecord versionRecord = {
  5, 3, 85, 502, {'q', '7', 0, 0}, "libzoriq7-5.3.dylib", "5.3 Update 2 build 85.21", "Feb 18 2008"};

const ZorVersionRecord* zoriGetLibVersion(void) { return &versionRecord; }
