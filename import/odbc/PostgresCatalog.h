// The catalog queries with which the ODBC source reads a whole PostgreSQL schema at once, each
// giving exactly the rows that psqlODBC's catalog functions give table by table, and the second
// connection that reads a schema's keys while the first reads its columns.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/OdbcCalls.h"
#include "import/odbc/SchemaRows.h"

#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

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

// The columns of every relation of the schemas LIKE `schemaLike` (a literal), ordered as psqlODBC
// orders SQLColumns: schema, table, column name, then the text of what the driver's answer for the
// column depends on (its kind).
WyString PgColumnQuery(const WyString& schemaLike);
// The names of the schemas' relations that psqlODBC lists columns of but the column query leaves out.
WyString PgOtherRelationQuery(const WyString& schemaLike);

// Every primary-key row of the schema, and the names of its indexes that end in "_pkey".
void ReadPrimaryKeysPostgres(SQLHDBC connection, const WyString& schema, SchemaRows<MIPrimaryKey>& rows,
                             std::set<WyString>& pkeyIndexNames);
// Every foreign-key row of the schema's tables.
void ReadForeignKeysPostgres(SQLHDBC connection, const WyString& schema, SchemaRows<MIForeignKey>& rows);

// The keys of the schema whose columns are being read, read meanwhile on a second connection of
// its own: the server works on both at once, and the keys are in memory by the time the writer
// asks for them. Whatever goes wrong here is dropped; the main connection then reads the keys
// itself and reports what is really wrong.
class KeyPrefetch {
public:
    KeyPrefetch() = default;
    KeyPrefetch(const KeyPrefetch&) = delete;
    KeyPrefetch& operator=(const KeyPrefetch&) = delete;
    ~KeyPrefetch() { Close(); }

    // Remembers how to open the second connection; `source` empty: never prefetch.
    void Configure(const WyString& source, const WyString& user, const WyString& password);
    // Starts reading the keys of (`catalog`, `schema`), dropping any that were not taken.
    void Start(const WyString& catalog, const WyString& schema);
    // The keys of (`catalog`, `schema`) when they were read here, waiting for them if need be;
    // false otherwise.
    bool TakePrimaryKeys(const WyString& catalog, const WyString& schema, SchemaRows<MIPrimaryKey>& rows,
                         std::set<WyString>& pkeyIndexNames);
    bool TakeForeignKeys(const WyString& catalog, const WyString& schema, SchemaRows<MIForeignKey>& rows);
    // Waits for the reading, ends the second connection and forgets the credentials.
    void Close() noexcept;

private:
    void Finish() noexcept;
    template <typename Done> bool Wait(const WyString& catalog, const WyString& schema, Done done);
    void Read() noexcept;
    void Signal(bool& done);

    WyString m_source;
    WyString m_user;
    WyString m_password;
    bool m_unavailable = true; // no second connection: not configured, or it could not be opened
    Handle m_environment;
    Handle m_connection;
    bool m_connected = false;

    std::thread m_worker;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_primaryKeysDone = false;
    bool m_foreignKeysDone = false;

    // Written by the worker until it signals the kind done; read by the caller after that.
    WyString m_catalog;
    WyString m_schema;
    SchemaRows<MIPrimaryKey> m_primaryKeys;
    std::set<WyString> m_pkeyIndexNames;
    bool m_primaryKeysRead = false;
    SchemaRows<MIForeignKey> m_foreignKeys;
    bool m_foreignKeysRead = false;
};

} // namespace odbc
