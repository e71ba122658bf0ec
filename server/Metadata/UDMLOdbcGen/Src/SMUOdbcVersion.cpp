// The loaded library's version, so that a host can tell it from the one it was compiled against.
#include "SMUOdbcVersion.h"

const char* UdmlOdbcGenVersion() {
    return UDMLODBCGEN_VERSION;
}
