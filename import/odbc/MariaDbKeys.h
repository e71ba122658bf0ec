// The primary and foreign keys of a whole MariaDB (or MySQL) database, read with the queries that
// MariaDB Connector/ODBC runs for SQLPrimaryKeys and SQLForeignKeys but with every filter a
// constant: the driver's foreign-key query joins KEY_COLUMN_USAGE to itself on the referenced
// schema, which makes the server open every table of every database on each call.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/OdbcCalls.h"
#include "import/odbc/SchemaRows.h"

#include <vector>

namespace odbc {

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
