// What the source reads from a database's own catalog about one schema's relations and columns,
// beside the driver's catalog functions: kinds, comments and native types.
#pragma once

#include "import/odbc/NativeTypes.h"
#include "platform/WyString.h"

#include <cstddef>
#include <map>
#include <utility>

namespace odbc {

struct RelationFacts {
    wchar_t kind = 0; // PostgreSQL's relkind
    WyString remarks;
};

struct ColumnFacts {
    NativeType type;
    WyString remarks;
};

struct SchemaFacts {
    WyString key; // the schema (PostgreSQL) or catalog (MariaDB) they were read for
    bool loaded = false;
    size_t generation = 0; // the listing they were read for
    std::map<WyString, RelationFacts> relations;
    std::map<std::pair<WyString, WyString>, ColumnFacts> columns; // by (table, column)
};

} // namespace odbc
