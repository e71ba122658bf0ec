// The whole-schema cache's bookkeeping.
#include "import/odbc/WholeSchemaCache.h"

namespace odbc {

void WholeSchemaCache::Clear() {
    columns.Clear();
    shapes.Clear();
    shapeOfKind.clear();
    relationsNotRead.clear();
    primaryKeys.Clear();
    foreignKeys.Clear();
}

} // namespace odbc
