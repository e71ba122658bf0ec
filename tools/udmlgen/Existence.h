// The check that a request names objects the source holds, so that a misspelt name fails
// instead of yielding a statement for an object that is not there.
#pragma once

#include "Options.h"

#include "import/MIMetaDataImport.h"

namespace udmlgen {

/// Asks the source for each name the request uses (catalog, schema, table or base table, and the
/// column or foreign key of those requests) as the generator would. Throws ErrorMessage naming
/// the first one not found, where it was looked for, and the closest names that exist.
void CheckRequestedObjectsExist(MIMetaDataImport& source, const Options& options);

} // namespace udmlgen
