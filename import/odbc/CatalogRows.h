// One reader per ODBC catalog function's result row: which result column holds what, said once
// for the per-table calls and the whole-schema queries that give the same columns.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/OdbcCalls.h"

#include <cstdint>
#include <tuple>

namespace odbc {

struct TableRef {
    WyString catalog;
    WyString schema;
    WyString table;
};

// A row of SQLTables (also of its SQL_ALL_CATALOGS and SQL_ALL_SCHEMAS forms): TABLE_CAT,
// TABLE_SCHEM, TABLE_NAME, TABLE_TYPE, REMARKS.
MITable TableRow(Row& row);

// The column values of a SQLColumns row that depend on the column's type rather than on its name,
// shared by the many columns of one type.
struct ColumnShape {
    WyString catalog;
    int32_t dataType = 0; // the signed ODBC DATA_TYPE, mapped with typeName when the record is made
    WyString typeName;
    uint32 precision = 0;
    uint32 length = 0;
    uint16 scale = 0;
    uint16 radix = 0;
    uint16 nullable = 0;

    bool operator<(const ColumnShape& other) const {
        return std::tie(catalog, dataType, typeName, precision, length, scale, radix, nullable) <
               std::tie(other.catalog, other.dataType, other.typeName, other.precision, other.length,
                        other.scale, other.radix, other.nullable);
    }
};

// The column values of a SQLColumns row that are the column's own.
struct CachedColumn {
    WyString name;
    WyString remarks;
    uint32_t shape = 0; // index of its ColumnShape where columns are kept
};

// A row of SQLColumns: TABLE_CAT, TABLE_SCHEM, TABLE_NAME, COLUMN_NAME, DATA_TYPE, TYPE_NAME,
// COLUMN_SIZE, BUFFER_LENGTH, DECIMAL_DIGITS, NUM_PREC_RADIX, NULLABLE, REMARKS.
void ColumnRow(Row& row, TableRef& table, CachedColumn& column, ColumnShape& shape);
// The record of a column of `table` read by ColumnRow.
MIColumn MakeColumn(const TableRef& table, const CachedColumn& column, const ColumnShape& shape);

// A row of SQLPrimaryKeys, or of a query with the same result columns: TABLE_CAT, TABLE_SCHEM,
// TABLE_NAME, COLUMN_NAME, KEY_SEQ, PK_NAME.
MIPrimaryKey PrimaryKeyRow(Row& row);
// A row of SQLForeignKeys, or of a query with the same result columns: PKTABLE_CAT,
// PKTABLE_SCHEM, PKTABLE_NAME, PKCOLUMN_NAME, FKTABLE_CAT, FKTABLE_SCHEM, FKTABLE_NAME,
// FKCOLUMN_NAME, KEY_SEQ, UPDATE_RULE, DELETE_RULE, FK_NAME, PK_NAME.
MIForeignKey ForeignKeyRow(Row& row);

} // namespace odbc
