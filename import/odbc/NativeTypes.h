// The refinement of a column's type from the database's own type, where the ODBC type code that
// the driver reports loses its meaning. One table per database system; docs/type-mapping.md shows
// the same tables with the drivers' raw reports.
#pragma once

#include "import/MIRecords.h"
#include "platform/WyString.h"

#include <cstdint>

namespace odbc {

// The database systems whose drivers the source knows more about than the ODBC codes say.
enum class Dbms { Other, PostgreSQL, MariaDB, SQLite };

// A database's own name for a column's type, lower case, without arguments ("varchar", "bit"),
// with the arguments it was declared with ("datetime(3)": 3; "decimal(10,5)": 10 and 5).
struct NativeType {
    WyString name;
    int32_t arguments = 0; // how many of the two below were declared
    int64_t first = 0;
    int64_t second = 0;
};

// Splits a declared type ("DECIMAL(10, 5)", "int(10) unsigned", "VARCHAR") into its lower-case
// name and up to two numeric arguments. Text after the arguments is dropped.
NativeType ParseNativeType(const WyString& declared);

// Rewrites `column.dataType_`, `precision_` and `scale_` (already mapped from the ODBC code and the
// driver's COLUMN_SIZE and DECIMAL_DIGITS) where the table of `dbms` has a row for `native`.
// Every other type, and every other DBMS, keeps the ODBC mapping.
void RefineType(Dbms dbms, const NativeType& native, MIColumn& column);

} // namespace odbc
