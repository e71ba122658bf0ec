// What the ODBC source reads from MariaDB's (and MySQL's) own catalog: the declared column types
// that MariaDB Connector/ODBC does not pass on.
#pragma once

#include "import/odbc/OdbcCalls.h"
#include "import/odbc/SchemaFacts.h"

namespace odbc {

// A MariaDB string literal of `text`, whatever the SQL mode says about backslashes.
WyString MariaDbLiteral(const WyString& text);

// The declared type (information_schema's COLUMN_TYPE) of every column of the database
// `catalog`. MariaDB Connector/ODBC (3.1) reports DATETIME(n), TIMESTAMP(n) and TIME(n) without
// their fraction digits, UUID, INET4 and INET6 as LONGVARBINARY 0, LONGTEXT (and JSON) with
// COLUMN_SIZE 0, and BOOLEAN as TINYINT; the declared type keeps what they are.
void ReadFactsMariaDb(SQLHDBC connection, const WyString& catalog, SchemaFacts& facts);

} // namespace odbc
