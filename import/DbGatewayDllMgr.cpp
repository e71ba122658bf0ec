// The factory of import sources: the call-interface type chooses the driver, and ODBC is the only
// one this gateway carries.
#include "import/DbGatewayDllMgr.h"

#include "import/odbc/OdbcImport.h"

MIMetaDataImport* DbGatewayDllMgr::MakeMIMetaDataImport(int cliType) {
    if (cliType == ServerInfo::kCLI_ODBC350) {
        return new OdbcImport();
    }
    return nullptr;
}
