// The generator library's common include unit: the platform layer and the import interface that
// every part of the generator uses, and the library's export macro.
#pragma once

#include "import/DbGatewayDllMgr.h"
#include "import/MIMetaDataImport.h"
#include "import/MIRecords.h"
#include "platform/BaseStringUtil.h"
#include "platform/ErrorMessage.h"
#include "platform/SUSystemConfig.h"
#include "platform/SystemUtility.h"
#include "platform/UDMLWyGenerator.h"
#include "platform/VirtualTable.h"
#include "platform/WyAssert.h"
#include "platform/WyString.h"
#include "platform/repository/ARpGateway.h"

#include "SMUOdbcVersion.h"

#if defined(SMU_ODBCGEN_BUILD)
#define SMU_ODBCGEN_API __attribute__((visibility("default")))
#else
#define SMU_ODBCGEN_API
#endif
