// The columns, primary keys and foreign keys of a whole MariaDB (or MySQL) database, read with the
// queries that MariaDB Connector/ODBC runs for SQLColumns, SQLPrimaryKeys and SQLForeignKeys but
// with every filter a constant the server can look up: the driver compares the database name as
// BINARY, which the server cannot use to pick the database's folder, and its foreign-key query joins
// KEY_COLUMN_USAGE to itself on the referenced schema; either makes the server open every table of
// every database.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/OdbcCalls.h"
#include "import/odbc/SchemaFacts.h"
#include "import/odbc/SchemaRows.h"
#include "import/odbc/WholeSchemaCache.h"

#include <vector>

namespace odbc {

// Every column of the database `catalog` as the driver's SQLColumns gives them, with the declared
// type of each (information_schema's COLUMN_TYPE) into `facts`, in one pass over the catalog.
void ReadColumnsMariaDb(SQLHDBC connection, const WyString& catalog, ColumnShapes& shapes,
                        SchemaRows<CachedColumn>& rows, SchemaFacts& facts);

// The primary-key rows of the table `table` (every table when empty) of the database `catalog`,
// as the driver's SQLPrimaryKeys gives them table by table.
void ReadPrimaryKeysMariaDb(SQLHDBC connection, const WyString& catalog, const WyString& table,
                            SchemaRows<MIPrimaryKey>& rows);

// The foreign-key rows of the table `table` (every table when empty) of the database `catalog` on
// the foreign-key side, as the driver's SQLForeignKeys gives them table by table: only references
// to a primary key, in the driver's order.
void ReadForeignKeysMariaDb(SQLHDBC connection, const WyString& catalog, const WyString& table,
                            SchemaRows<MIForeignKey>& rows);

// Puts foreign-key rows in the driver's order, by table, KEY_SEQ and referenced table (compared
// ignoring letter case, as the server sorts them), and then by constraint name: among rows equal in
// the first three the server's sort decides, and it decides differently for one table and for a
// whole database, so both paths take this order.
void OrderForeignKeysMariaDb(std::vector<MIForeignKey>& keys);

} // namespace odbc
