// The catalog queries with which the ODBC source reads a whole PostgreSQL schema at once, each
// giving exactly the rows that psqlODBC's catalog functions give table by table.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/OdbcCalls.h"
#include "import/odbc/SchemaFacts.h"
#include "import/odbc/SchemaRows.h"
#include "import/odbc/WholeSchemaCache.h"

#include <functional>
#include <map>
#include <set>

namespace odbc {

// A PostgreSQL string literal that reads as `text` whatever standard_conforming_strings says.
WyString PgLiteral(const WyString& text);

// As RunQuery, but through a server-side cursor read a page at a time: psqlODBC holds a whole
// result in memory, and a schema's columns may be many.
template <typename Take>
void RunPagedPgQuery(SQLHDBC connection, const WyString& sql, const WyString& context, Take take) {
    const size_t page = 5000;
    const WyString cursor = L"udmlgen_schema_rows";
    auto ignore = [](Row&) {};
    // A cursor's query is planned for its first rows (nested loops over the whole catalog, seconds);
    // a materialized common table expression is planned for all of them.
    RunQuery(connection,
             L"declare " + cursor + L" no scroll cursor with hold for with udmlgen_rows as materialized (" +
                 sql + L") select * from udmlgen_rows",
             context, ignore);
    try {
        for (;;) {
            size_t count = 0;
            RunQuery(connection, L"fetch forward " + std::to_wstring(page) + L" from " + cursor, context,
                     [&](Row& row) {
                         ++count;
                         take(row);
                     });
            if (count < page) {
                break;
            }
        }
    } catch (...) {
        try {
            RunQuery(connection, L"close " + cursor, context, ignore);
        } catch (const ErrorMessage&) {
            // The first failure is the one worth reporting.
        }
        throw;
    }
    RunQuery(connection, L"close " + cursor, context, ignore);
}

// The condition that `column` matches the search pattern `pattern` ("%", "_", and "\\" escaping
// only those and itself), as = where the pattern has no wildcard; "true" for the empty pattern.
WyString PgPatternCondition(const wchar_t* column, const WyString& pattern);

// Every column of the schemas matching `schemaPattern` from pg_catalog, with what psqlODBC
// computes from a column's type taken from the driver itself, `driverShape(table, column)`, once
// per distinct kind of column and connection; `cache.relationsNotRead` becomes the names of the
// relations whose columns psqlODBC lists but this read leaves out.
void ReadColumnsPostgres(SQLHDBC connection, const WyString& schemaPattern, const WyString& context,
                         WholeSchemaCache& cache, SchemaRows<CachedColumn>& rows,
                         const std::function<ColumnShape(const TableRef&, const WyString&)>& driverShape);

// The primary-key rows of the table (every table when empty) of the schema (exact names), from the
// database's constraints.
void ReadPrimaryKeysPostgres(SQLHDBC connection, const WyString& schema, const WyString& table,
                             SchemaRows<MIPrimaryKey>& rows);
// The foreign-key rows between the tables `pk` and `fk` (exact names, empty: any), from the
// database's constraints.
void ReadForeignKeysPostgres(SQLHDBC connection, const TableRef& pk, const TableRef& fk,
                             SchemaRows<MIForeignKey>& rows);

// The kinds, comments and native types of the relations and columns of the schema.
void ReadFactsPostgres(SQLHDBC connection, const WyString& schema, SchemaFacts& facts);

// Whether psqlODBC's SQLColumns rows of a relation of this kind are a listed table's columns
// (not an index's, a sequence's or a composite type's).
bool PgListsColumnsOf(wchar_t relkind);

} // namespace odbc
