// The MariaDB catalog query.
#include "import/odbc/MariaDbCatalog.h"

namespace odbc {

WyString MariaDbLiteral(const WyString& text) {
    WyString literal = L"'";
    for (wchar_t c : text) {
        if (c == L'\'') {
            literal += L"''";
        } else if (c == L'\\') {
            literal += L"', char(92), '";
        } else {
            literal += c;
        }
    }
    return L"concat(" + literal + L"')";
}

void ReadFactsMariaDb(SQLHDBC connection, const WyString& catalog, SchemaFacts& facts) {
    const WyString context = L"reading the column types of the database " + Quoted(catalog);
    RunQuery(connection,
             L"select table_name, column_name, column_type from information_schema.columns where "
             L"table_schema = " +
                 MariaDbLiteral(catalog),
             context, [&](Row& row) {
                 const WyString table = row.Text(1);
                 const WyString column = row.Text(2);
                 facts.columns[{table, column}].type = ParseNativeType(row.Text(3));
             });
}

} // namespace odbc
