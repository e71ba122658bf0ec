// The factory of import sources by call-interface type.
#pragma once

#include "import/MIMetaDataImport.h"

class DbGatewayDllMgr {
public:
    /// A new import source for `cliType`: the ODBC source for kCLI_ODBC350 (3), null for every
    /// type without a driver. The caller owns the result.
    static MIMetaDataImport* MakeMIMetaDataImport(int cliType);
};
