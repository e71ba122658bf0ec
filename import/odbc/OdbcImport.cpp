// The ODBC import source: the ODBC 3 catalog functions of unixODBC, called through the wide entry
// points, mapped onto the import records column by column. Search patterns are applied again to
// what the driver returns, since drivers differ in how faithfully they apply them.
#include "import/odbc/OdbcImport.h"

#include "import/SearchPattern.h"
#include "import/odbc/CatalogRows.h"
#include "import/odbc/KeyPrefetch.h"
#include "import/odbc/MariaDbCatalog.h"
#include "import/odbc/MariaDbDatabase.h"
#include "import/odbc/NativeTypes.h"
#include "import/odbc/OdbcCalls.h"
#include "import/odbc/OdbcRules.h"
#include "import/odbc/PostgresCatalog.h"
#include "import/odbc/SchemaRows.h"
#include "import/odbc/Utf16.h"
#include "import/odbc/WholeSchemaCache.h"
#include "platform/BaseStringUtil.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// What the SQLite3 ODBC driver (libsqliteodbc 0.9998) returns for the sample sales database, as
// observed with SQLTablesW/SQLColumnsW/SQLPrimaryKeysW/SQLForeignKeysW:
// NOTE: SQLite3 ODBC ignores SQL_ALL_CATALOGS and SQL_ALL_SCHEMAS and answers with its plain table
//       list (every row has a TABLE_NAME), so it lists no catalogs and no schemas.
// NOTE: SQLite3 ODBC reports TABLE_CAT and TABLE_SCHEM as NULL in SQLTables but as "" in
//       SQLColumns, SQLPrimaryKeys and SQLForeignKeys; both arrive here as the empty text.
// NOTE: SQLite3 ODBC matches name patterns ignoring case ("ORDER_%" lists order_lines), hence the
//       case-sensitive second pass over every listing.
// NOTE: SQLite3 ODBC leaves PK_NAME and FK_NAME NULL, also for a named CONSTRAINT; the writers
//       make the key names up.
// NOTE: SQLite3 ODBC derives DATA_TYPE from the declared type name: CHAR(n) and DECIMAL(p,s) come
//       back as SQL_VARCHAR, NUMERIC(p,s) and REAL as SQL_DOUBLE, a view's computed column as
//       SQL_VARCHAR with an empty TYPE_NAME; COLUMN_SIZE of DECIMAL(10,2) is 2; DECIMAL_DIGITS is
//       10 and NUM_PREC_RADIX 0 for every column. NativeTypes maps the declared types instead.
// NOTE: SQLite3 ODBC lists no system tables: the types 'SYSTEM TABLE','SYSTEM VIEW' select nothing.
// NOTE: SQLite3 ODBC compares the table name of SQLPrimaryKeys and SQLForeignKeys ignoring case
//       and echoes the name as given ("ORDER_LINES" yields the keys of order_lines, so named).
// NOTE: SQLite3 ODBC lists the foreign keys of a table last declared first.

using namespace odbc;

namespace {

// The SQLite ODBC driver (0.9998) copies a table name argument into a buffer of 512 bytes and
// lists no columns for a longer name, without a word; its whole-schema listing has no such limit.
bool TooLongForSqliteDriver(const WyString& table) {
    size_t bytes = 0;
    for (const wchar_t c : table) {
        const auto unit = static_cast<uint32_t>(c);
        bytes += unit < 0x80 ? 1 : unit < 0x800 ? 2 : unit < 0x10000 ? 3 : 4;
    }
    return bytes >= 512;
}

// NOTE: unixODBC passes the arguments of wide calls to a driver without wide entry points (the
//       Debian build of SQLite3 ODBC is one) in the character set of the process locale; under
//       the C locale the characters beyond ASCII are lost, and a table pattern ending in a euro
//       sign finds nothing (observed with unixODBC 2.3.11). Under such a locale a search pattern
//       reaches the driver with "_" for each such character, and the listing applies the whole
//       pattern. Under a UTF-8 locale (udmlgen sets one) the names pass whole: drivers with wide
//       entry points, such as MariaDB's, need a literal catalog name as it is.
bool LocaleLosesNonAscii() {
    return MB_CUR_MAX == 1;
}

bool EscapesNext(const WyString& pattern, size_t at) {
    return pattern[at] == L'\\' && at + 1 < pattern.size() &&
           (pattern[at + 1] == L'%' || pattern[at + 1] == L'_' || pattern[at + 1] == L'\\');
}

// A search pattern as the driver of `dbms` reads it. psqlODBC and SQLite3 ODBC take "\\" as an
// escape only before "%", "_" and "\\", as our patterns do; MariaDB Connector/ODBC hands patterns to
// LIKE, where "\\" escapes any character, so a backslash that stands for itself is doubled there.
// Characters beyond the Basic Multilingual Plane become "_": SQLite3 ODBC (narrow entry points)
// finds nothing for them (unixODBC 2.3.11); the listing applies the whole pattern afterwards.
// The same holds for an escaped backslash on psqlODBC and SQLite3 ODBC.
WyString DriverPattern(Dbms dbms, const WyString& pattern) {
    WyString driverPattern;
    for (size_t i = 0; i < pattern.size(); ++i) {
        wchar_t c = pattern[i];
        if (EscapesNext(pattern, i) && pattern[i + 1] == L'\\' && dbms != Dbms::MariaDB) {
            // psqlODBC 13 and SQLite3 ODBC find nothing for an escaped backslash, although they
            // read a lone one as itself: "_" stands in for it.
            driverPattern += L'_';
            ++i;
            continue;
        }
        if (EscapesNext(pattern, i)) {
            driverPattern += c;
            c = pattern[++i];
        } else if (c == L'\\' && dbms == Dbms::MariaDB) {
            driverPattern += L'\\';
        }
        const bool lost = (c >= 0x80 && LocaleLosesNonAscii()) || static_cast<uint32_t>(c) > 0xFFFF;
        driverPattern += lost ? L'_' : c;
    }
    return driverPattern;
}
WideArg PatternArgument(Dbms dbms, const WyString& pattern) {
    return NullIfEmpty(DriverPattern(dbms, pattern));
}

// The search pattern that matches exactly `name`.
WyString EscapedName(const WyString& name) {
    WyString pattern;
    for (wchar_t c : name) {
        if (c == L'%' || c == L'_' || c == L'\\') {
            pattern += L'\\';
        }
        pattern += c;
    }
    return pattern;
}

// An argument that the catalog function takes literally (the catalog of SQLColumns) while the
// caller gave a search pattern: a pattern with "%" selects every name here and is applied
// afterwards; otherwise the escapes are removed and the name passed on.
WideArg LiteralArgument(const WyString& pattern) {
    WyString literal;
    for (size_t i = 0; i < pattern.size(); ++i) {
        wchar_t c = pattern[i];
        if (EscapesNext(pattern, i)) {
            c = pattern[++i];
        } else if (c == L'%') {
            return WideArg();
        }
        if (c >= 0x80 && LocaleLosesNonAscii()) {
            return WideArg(); // see DriverPattern
        }
        literal += c;
    }
    return NullIfEmpty(literal);
}

// One kind of listing with its own statement. A listing may run the catalog function once, or
// once per table of a list (keys of every table), moving on when a table's rows are used up.
class Listing {
public:
    // Closes whatever the listing held and prepares its statement on `connection`.
    void Start(SQLHDBC connection, const WyString& context) {
        Stop();
        m_context = context;
        if (m_statement.Get() == SQL_NULL_HANDLE) {
            m_statement.Allocate(SQL_HANDLE_STMT, connection, SQL_HANDLE_DBC, context);
        }
    }
    void Stop() noexcept {
        if (m_statement.Get() != SQL_NULL_HANDLE) {
            CloseCursor(m_statement.Get());
        }
        m_open = false;
        m_tables.clear();
        m_nextTable = 0;
        m_runFor = nullptr;
    }
    void Free() noexcept {
        Stop();
        m_statement.Reset();
    }

    SQLHSTMT Statement() const { return m_statement.Get(); }
    const WyString& Context() const { return m_context; }
    void SetContext(const WyString& context) { m_context = context; }

    // Takes the result of the catalog function just called on Statement().
    void Opened(SQLRETURN rc) {
        if (rc == SQL_NO_DATA) {
            return; // no result set: nothing to list
        }
        if (!SQL_SUCCEEDED(rc)) {
            // Only the cursor is closed here: this may run inside m_runFor, which must outlive it.
            ErrorMessage error = OdbcError(m_context, SQL_HANDLE_STMT, m_statement.Get(), rc);
            CloseCursor(m_statement.Get());
            m_open = false;
            throw error;
        }
        m_open = true;
    }

    // Runs `runFor` for each table in turn as the rows of the one before are used up.
    void ForEachTable(std::vector<TableRef> tables, std::function<void(const TableRef&)> runFor) {
        m_tables = std::move(tables);
        m_nextTable = 0;
        m_runFor = std::move(runFor);
    }

    // Moves to the next row; false when none is left.
    bool Fetch() {
        for (;;) {
            if (m_open) {
                const SQLRETURN rc = odbc::Fetch(m_statement.Get());
                if (SQL_SUCCEEDED(rc)) {
                    return true;
                }
                if (rc != SQL_NO_DATA) {
                    // The listing ends here: a later Get answers false instead of failing again.
                    ErrorMessage error = OdbcError(m_context, SQL_HANDLE_STMT, m_statement.Get(), rc);
                    Stop();
                    throw error;
                }
                CloseCursor(m_statement.Get());
                m_open = false;
            }
            if (!m_runFor || m_nextTable >= m_tables.size()) {
                return false;
            }
            const TableRef table = m_tables[m_nextTable++];
            try {
                m_runFor(table);
            } catch (...) {
                Stop(); // the listing ends with its first failure
                throw;
            }
        }
    }

private:
    Handle m_statement;
    WyString m_context;
    bool m_open = false;
    std::vector<TableRef> m_tables;
    size_t m_nextTable = 0;
    std::function<void(const TableRef&)> m_runFor;
};

// A driver's catalog or schema name is compared with the caller's only where it has one: a driver
// that leaves them empty has no catalogs or schemas and has already applied what it could.
bool PatternAllows(const WyString& pattern, const WyString& name) {
    return name.empty() || MatchesSearchPattern(pattern, name);
}
bool ExactAllows(const WyString& wanted, const WyString& name) {
    return wanted.empty() || name.empty() || wanted == name;
}

// The quoted type names that SQLTables is asked for, or empty for "every type".
WyString TableTypeList(uint8 selector) {
    if (selector == 0 || (selector & 0x01) != 0) {
        return WyString();
    }
    WyString list;
    auto add = [&list](const wchar_t* names) {
        if (!list.empty()) {
            list += L',';
        }
        list += names;
    };
    if (selector & 0x02) {
        add(L"'SYSTEM TABLE','SYSTEM VIEW'");
    }
    if (selector & 0x04) {
        add(L"'SYNONYM','ALIAS'");
    }
    if (selector & 0x08) {
        add(L"'GLOBAL TEMPORARY','LOCAL TEMPORARY'");
    }
    return list;
}

// Which catalog queries of its own the source may use in place of the driver's per-table calls.
enum class Dialect {
    Plain,       // per-table catalog functions only
    WholeSchema, // SQLColumns once per schema; keys per table
    Postgres,    // psqlODBC: pg_catalog queries for columns and keys
};

} // namespace

struct OdbcImport::State {
    Handle environment;
    Handle connection;
    bool connected = false;

    Listing catalogs;
    Listing schemas;
    Listing tables;
    Listing columns;
    Listing primaryKeys;
    Listing foreignKeys;

    // What the current listings select beyond what the driver was asked.
    WyString catalogPattern;
    std::set<WyString> catalogsSeen;
    WyString schemaCatalog;
    WyString schemaPattern;
    std::set<std::pair<WyString, WyString>> schemasSeen;
    TableRef tablePattern;
    uint8 tableSelector = 1;
    TableRef columnTable;
    WyString columnPattern;
    TableRef keyTable;
    TableRef foreignPk;
    TableRef foreignFk;

    Dbms dbms = Dbms::Other;
    WyString connectionDatabase;  // MariaDB: the database the connection string named, if any
    SchemaFacts facts;            // of the schema (catalog on MariaDB) last met
    size_t listingGeneration = 0; // counts the table and column listings begun

    // Whole-schema reads, and what they answer.
    Dialect dialect = Dialect::Plain;
    bool perTableOnly = false;
    WholeSchemaCache cache;
    Served<MITable> servedTables;
    Served<MIColumn> servedColumns;
    Served<MIPrimaryKey> servedPrimaryKeys;
    Served<MIForeignKey> servedForeignKeys;
    KeyPrefetch keyPrefetch;

    ~State() { Close(); }

    void Close() noexcept {
        keyPrefetch.Close();
        for (Listing* listing : {&catalogs, &schemas, &tables, &columns, &primaryKeys, &foreignKeys}) {
            listing->Free();
        }
        if (connected) {
            Disconnect(connection.Get());
            connected = false;
        }
        cache.Clear();
        servedTables.Stop();
        servedColumns.Stop();
        servedPrimaryKeys.Stop();
        servedForeignKeys.Stop();
        dialect = Dialect::Plain;
        dbms = Dbms::Other;
        connectionDatabase.clear();
        facts = SchemaFacts();
        connection.Reset();
        environment.Reset();
    }

    SQLHDBC Connection(const WyString& context) const {
        if (!connected) {
            ErrorMessage error(context);
            error.AddMessage(
                L"not connected to a data source: the connection was never opened or has been closed");
            throw error;
        }
        return connection.Get();
    }

    // Every column of every table of the catalog and schema (patterns) through one SQLColumns.
    void LoadColumnsWhole(SchemaRows<CachedColumn>& rows, const WyString& catalog, const WyString& schema) {
        const WyString where = NamePath({&catalog, &schema});
        const WyString context =
            L"reading the columns of every table" + (where.empty() ? WyString() : L" of " + where);
        WideArg catalogArg = LiteralArgument(catalog);
        WideArg schemaArg = PatternArgument(dbms, schema);
        WideArg all(L"%");
        RunCatalogCall(
            Connection(context), context,
            [&](SQLHSTMT statement) { return Columns(statement, catalogArg, schemaArg, all, all); },
            [&](Row& row) {
                TableRef table;
                CachedColumn column;
                ColumnShape shape;
                ColumnRow(row, table, column, shape);
                column.shape = cache.shapes.Of(shape);
                rows.Add(table.catalog, table.schema, table.table, std::move(column));
            });
    }

    // What the driver's SQLColumns says about the one column `column` of `table`.
    ColumnShape DriverShape(const WyString& catalog, const TableRef& table, const WyString& column) {
        const WyString context = L"reading the column " + NamePath({&table.schema, &table.table, &column});
        WideArg catalogArg = LiteralArgument(catalog);
        WideArg schemaArg = PatternArgument(dbms, EscapedName(table.schema));
        WideArg tableArg = PatternArgument(dbms, EscapedName(table.table));
        WideArg columnArg = PatternArgument(dbms, EscapedName(column));
        bool found = false;
        ColumnShape result;
        RunCatalogCall(
            Connection(context), context,
            [&](SQLHSTMT statement) {
                return Columns(statement, catalogArg, schemaArg, tableArg, columnArg);
            },
            [&](Row& row) {
                TableRef of;
                CachedColumn cached;
                ColumnShape shape;
                ColumnRow(row, of, cached, shape);
                if (found || of.schema != table.schema || of.table != table.table || cached.name != column) {
                    return;
                }
                if (!cached.remarks.empty()) {
                    // Remarks are the column's own: one column cannot speak for the others.
                    throw ErrorMessage(context + L": the driver reports remarks");
                }
                result = shape;
                found = true;
            });
        if (!found) {
            throw ErrorMessage(context + L": the driver does not list the column");
        }
        return result;
    }

    // The facts of the schema (PostgreSQL) or catalog (MariaDB) of a row the driver reported. With
    // `fresh`, facts read before the current listing began are read again: the row may be of an
    // object made since.
    const SchemaFacts& FactsOf(const WyString& catalog, const WyString& schema, bool fresh = false) {
        const WyString& key = dbms == Dbms::PostgreSQL ? schema : catalog;
        if (!facts.loaded || facts.key != key || (fresh && facts.generation != listingGeneration)) {
            facts = SchemaFacts();
            facts.key = key;
            facts.generation = listingGeneration;
            if (dbms == Dbms::PostgreSQL) {
                ReadFactsPostgres(Connection(L"reading comments and types"), key, facts);
            } else if (!ReadDatabaseMariaDb(key)) {
                ReadFactsMariaDb(Connection(L"reading column types"), key, facts);
            }
            facts.loaded = true;
        }
        return facts;
    }

    // Reads the columns of the whole database `catalog` with their declared types in one pass,
    // where the whole-database reads are used: the types are wanted from the first column on, and
    // the columns of the next table asked for are then in memory. False: only the types are to be
    // read.
    bool ReadDatabaseMariaDb(const WyString& catalog) {
        if (dialect == Dialect::Plain || catalog.empty()) {
            return false;
        }
        SchemaRows<CachedColumn>& rows = cache.columns.rows;
        try {
            rows.Reset(catalog, WyString());
            ReadColumnsMariaDb(Connection(L"reading columns"), catalog, cache.shapes, rows, facts);
            rows.Loaded();
            ++cache.reads;
            return true;
        } catch (const ErrorMessage&) {
            // The driver's calls and the plain type query still answer, and report what is wrong.
            rows = SchemaRows<CachedColumn>();
            facts.columns.clear();
            return false;
        }
    }

    // Completes a table the driver reported with what the database knows beyond it.
    void Complete(MITable& table) {
        if (dbms == Dbms::PostgreSQL) {
            const SchemaFacts* known = &FactsOf(table.catalog_, table.schema_);
            auto relation = known->relations.find(table.table_);
            if (relation == known->relations.end()) {
                known = &FactsOf(table.catalog_, table.schema_, true);
                relation = known->relations.find(table.table_);
            }
            table.remarks_ = relation == known->relations.end() ? WyString() : relation->second.remarks;
        }
    }

    // Completes a column the driver reported with the database's own type and comment; false when
    // the row is not a column of a table the source lists (psqlODBC lists index columns too).
    bool Complete(MIColumn& column) {
        switch (dbms) {
        case Dbms::PostgreSQL: {
            const SchemaFacts* known = &FactsOf(column.catalog_, column.schema_);
            auto found = known->columns.find({column.table_, column.columnName_});
            if (found == known->columns.end()) {
                known = &FactsOf(column.catalog_, column.schema_, true);
                found = known->columns.find({column.table_, column.columnName_});
            }
            const auto relation = known->relations.find(column.table_);
            if (relation == known->relations.end() || !PgListsColumnsOf(relation->second.kind)) {
                return false;
            }
            if (found != known->columns.end()) {
                RefineType(dbms, found->second.type, column);
                column.remarks_ = found->second.remarks;
            }
            return true;
        }
        case Dbms::MariaDB: {
            const SchemaFacts* known = &FactsOf(column.catalog_, column.schema_);
            auto found = known->columns.find({column.table_, column.columnName_});
            if (found == known->columns.end()) {
                known = &FactsOf(column.catalog_, column.schema_, true);
                found = known->columns.find({column.table_, column.columnName_});
            }
            if (found != known->columns.end()) {
                RefineType(dbms, found->second.type, column);
            }
            return true;
        }
        case Dbms::SQLite:
            RefineType(dbms, ParseNativeType(column.typeName_), column);
            return true;
        case Dbms::Other:
            break;
        }
        return true;
    }

    // The next table of the listing that the request selects.
    bool NextTable(MITable& record) {
        while (tables.Fetch()) {
            Row row(tables.Statement(), tables.Context());
            MITable table = TableRow(row);
            if (!TableTypeSelected(tableSelector, table.tableType_) ||
                !PatternAllows(tablePattern.catalog, table.catalog_) ||
                !PatternAllows(tablePattern.schema, table.schema_) ||
                !MatchesSearchPattern(tablePattern.table, table.table_)) {
                continue;
            }
            Complete(table);
            record = std::move(table);
            return true;
        }
        return false;
    }

    // MariaDB Connector/ODBC (3.1) orders SQLTables by names compared ignoring case, so tables whose
    // names differ only in case come in no fixed order; they are put in the order of their exact
    // names, every other table staying where the driver put it.
    void ServeTablesInFixedOrder() {
        servedTables.Start();
        MITable table;
        while (NextTable(table)) {
            servedTables.records.push_back(std::move(table));
        }
        auto folded = [](const MITable& t) {
            return BaseStringUtil::ToLowerCase(t.catalog_ + L'\n' + t.schema_ + L'\n' + t.table_);
        };
        std::vector<MITable>& rows = servedTables.records;
        for (size_t first = 0; first < rows.size();) {
            size_t end = first + 1;
            while (end < rows.size() && folded(rows[end]) == folded(rows[first])) {
                ++end;
            }
            std::sort(rows.begin() + static_cast<std::ptrdiff_t>(first),
                      rows.begin() + static_cast<std::ptrdiff_t>(end),
                      [](const MITable& a, const MITable& b) { return a.table_ < b.table_; });
            first = end;
        }
    }

    bool ColumnWanted(const MIColumn& column) const {
        return PatternAllows(columnTable.catalog, column.catalog_) &&
               PatternAllows(columnTable.schema, column.schema_) &&
               MatchesSearchPattern(columnTable.table, column.table_) &&
               MatchesSearchPattern(columnPattern, column.columnName_);
    }
    bool PrimaryKeyWanted(const MIPrimaryKey& key) const {
        // The names are exact: a driver that compares them ignoring case is held to them here.
        return ExactAllows(keyTable.catalog, key.catalog_) && ExactAllows(keyTable.schema, key.schema_) &&
               ExactAllows(keyTable.table, key.table_);
    }
    bool ForeignKeyWanted(const MIForeignKey& key) const {
        return ExactAllows(foreignPk.catalog, key.pkCatalog_) &&
               ExactAllows(foreignPk.schema, key.pkSchema_) && ExactAllows(foreignPk.table, key.pkTable_) &&
               ExactAllows(foreignFk.catalog, key.fkCatalog_) &&
               ExactAllows(foreignFk.schema, key.fkSchema_) && ExactAllows(foreignFk.table, key.fkTable_);
    }

    // Answers a request for the columns of a table from the schema's rows in memory, when the
    // request is one that they answer exactly. False: the driver is to be asked.
    bool ColumnsFromMemory(const WyString& catalog, const WyString& schema, const WyString& table,
                           const WyString& column) {
        if (dialect == Dialect::Plain || !connected || table.empty() || !(column.empty() || column == L"%") ||
            (dialect == Dialect::Postgres && schema.empty())) {
            return false;
        }
        std::vector<MIColumn> found;
        const bool inMemory = cache.Columns(
            TableRef{catalog, schema, table},
            [&](SchemaRows<CachedColumn>& rows) {
                if (dialect == Dialect::Postgres) {
                    const WyString context =
                        L"reading the columns of every table of the schema " + Quoted(schema);
                    keyPrefetch.Start(catalog, schema);
                    ReadColumnsPostgres(Connection(context), schema, context, cache, rows,
                                        [&](const TableRef& of, const WyString& name) {
                                            return DriverShape(catalog, of, name);
                                        });
                } else {
                    LoadColumnsWhole(rows, catalog, schema);
                }
            },
            found, TooLongForSqliteDriver(table));
        if (!inMemory) {
            return false;
        }
        columns.Stop();
        servedColumns.Start();
        columnTable = TableRef{catalog, schema, table};
        columnPattern = column;
        for (MIColumn& record : found) {
            if (ColumnWanted(record) && Complete(record)) {
                servedColumns.records.push_back(std::move(record));
            }
        }
        return true;
    }

    // Whether the keys of the tables of (catalog, schema) are read for the whole schema at once:
    // PostgreSQL's per schema, MariaDB's per database (its catalogs).
    bool KeysInBulk(const WyString& catalog, const WyString& schema) const {
        if (!connected || dialect == Dialect::Plain) {
            return false;
        }
        return dialect == Dialect::Postgres ? !schema.empty() : dbms == Dbms::MariaDB && !catalog.empty();
    }

    bool PrimaryKeyFromMemory(const WyString& catalog, const WyString& schema, const WyString& table) {
        if (table.empty() || !KeysInBulk(catalog, schema)) {
            return false;
        }
        std::vector<MIPrimaryKey> found;
        const bool inMemory = cache.PrimaryKey(
            TableRef{catalog, schema, table},
            [&](SchemaRows<MIPrimaryKey>& rows) {
                if (dbms == Dbms::MariaDB) {
                    ReadPrimaryKeysMariaDb(Connection(L"reading primary keys"), catalog, WyString(), rows);
                } else if (!keyPrefetch.TakePrimaryKeys(catalog, schema, rows)) {
                    ReadPrimaryKeysPostgres(Connection(L"reading primary keys"), schema, WyString(), rows);
                }
            },
            found);
        if (!inMemory) {
            return false;
        }
        primaryKeys.Stop();
        servedPrimaryKeys.Start();
        keyTable = TableRef{catalog, schema, table};
        for (MIPrimaryKey& key : found) {
            if (PrimaryKeyWanted(key)) {
                servedPrimaryKeys.records.push_back(std::move(key));
            }
        }
        return true;
    }

    bool ForeignKeysFromMemory(const TableRef& pk, const TableRef& fk) {
        if (!pk.catalog.empty() || !pk.schema.empty() || !pk.table.empty() || fk.table.empty() ||
            !KeysInBulk(fk.catalog, fk.schema)) {
            return false;
        }
        std::vector<MIForeignKey> found;
        const bool inMemory = cache.ForeignKeys(
            fk,
            [&](SchemaRows<MIForeignKey>& rows) {
                if (dbms == Dbms::MariaDB) {
                    ReadForeignKeysMariaDb(Connection(L"reading foreign keys"), fk.catalog, WyString(), rows);
                } else if (!keyPrefetch.TakeForeignKeys(fk.catalog, fk.schema, rows)) {
                    ReadForeignKeysPostgres(Connection(L"reading foreign keys"), TableRef(),
                                            TableRef{WyString(), fk.schema, WyString()}, rows);
                }
            },
            found);
        if (!inMemory) {
            return false;
        }
        foreignKeys.Stop();
        servedForeignKeys.Start();
        foreignPk = pk;
        foreignFk = fk;
        for (MIForeignKey& key : found) {
            if (ForeignKeyWanted(key)) {
                servedForeignKeys.records.push_back(std::move(key));
            }
        }
        return true;
    }

    // Every table of the catalog and schema (exact names), of every type, in the driver's order.
    std::vector<TableRef> AllTables(const WyString& catalog, const WyString& schema,
                                    const WyString& context) {
        WideArg catalogArg = NullIfEmpty(catalog);
        WideArg schemaArg = NullIfEmpty(schema);
        WideArg any;
        std::vector<TableRef> found;
        RunCatalogCall(
            Connection(context), context,
            [&](SQLHSTMT statement) { return Tables(statement, catalogArg, schemaArg, any, any); },
            [&](Row& row) {
                const MITable table = TableRow(row);
                // The schema argument of SQLTables is a pattern; these names are exact.
                if (ExactAllows(catalog, table.catalog_) && ExactAllows(schema, table.schema_) &&
                    !table.table_.empty()) {
                    found.push_back(TableRef{table.catalog_, table.schema_, table.table_});
                }
            });
        return found;
    }
};

namespace {

// The DBMS, where the driver is one whose answers the source was checked against.
// A driver that cannot name them would silently get another reading (types, whole-schema reads).
Dbms DetectDbms(SQLHDBC connection, const WyString& context) {
    const WyString dbms = RequiredInfoText(connection, SQL_DBMS_NAME, context);
    const WyString driver = RequiredInfoText(connection, SQL_DRIVER_NAME, context);
    if (dbms == L"PostgreSQL" && driver.compare(0, 8, L"psqlodbc") == 0) {
        return Dbms::PostgreSQL;
    }
    if (dbms == L"SQLite" && driver.compare(0, 11, L"sqlite3odbc") == 0) {
        return Dbms::SQLite;
    }
    if (dbms == L"MariaDB" && driver.compare(0, 9, L"libmaodbc") == 0) {
        return Dbms::MariaDB;
    }
    return Dbms::Other;
}

// Only where the whole-schema reads were checked against the driver's per-table answers.
Dialect WholeSchemaDialect(Dbms dbms) {
    switch (dbms) {
    case Dbms::PostgreSQL:
        return Dialect::Postgres;
    case Dbms::SQLite:
    case Dbms::MariaDB:
        return Dialect::WholeSchema;
    case Dbms::Other:
        break;
    }
    return Dialect::Plain;
}

bool PerTableByEnvironment() {
    static const bool perTable = [] {
        const char* value = std::getenv("UDMLGEN_ODBC_PER_TABLE");
        return value != nullptr && std::string(value) == "1";
    }();
    return perTable;
}

} // namespace

OdbcImport::OdbcImport() : m_state(new State) {
    m_state->perTableOnly = PerTableByEnvironment();
}

void OdbcImport::SetPerTableReads(bool perTable) {
    m_state->perTableOnly = perTable;
}

size_t OdbcImport::WholeSchemaReads() const {
    return m_state->cache.reads;
}

WyString OdbcImport::ProductNames() const {
    if (!m_state->connected) {
        return WyString();
    }
    SQLHDBC connection = m_state->connection.Get();
    return L"driver " + InfoText(connection, SQL_DRIVER_NAME) + L" " + InfoText(connection, SQL_DRIVER_VER) +
           L", DBMS " + InfoText(connection, SQL_DBMS_NAME) + L" " + InfoText(connection, SQL_DBMS_VER);
}

OdbcImport::~OdbcImport() {
    CloseConnection();
}

void OdbcImport::OpenConnection(WyString& source, WyString& user, WyString& password, bool) {
    CloseConnection();
    State& state = *m_state;
    const DataSource target(source, user, password);
    const WyString context = target.Describe();
    try {
        Connect(state.environment, state.connection, target, context);
        state.connected = true;
        state.dbms = DetectDbms(state.connection.Get(), context);
        state.dialect = state.perTableOnly ? Dialect::Plain : WholeSchemaDialect(state.dbms);
        if (state.dialect == Dialect::Postgres) {
            state.keyPrefetch.Configure(target);
        }
        if (state.dbms == Dbms::MariaDB) {
            try {
                RunQuery(state.connection.Get(), L"SELECT DATABASE()", context,
                         [&](Row& row) { state.connectionDatabase = row.Text(1); });
            } catch (const ErrorMessage&) {
                // Without it every database the driver lists is described, as without Database=.
                state.connectionDatabase.clear();
            }
        }
    } catch (...) {
        state.Close();
        throw;
    }
}

void OdbcImport::CloseConnection() {
    if (m_state) {
        m_state->Close();
    }
}

void OdbcImport::PrepareForCatalog(WyString& catalog) {
    State& state = *m_state;
    const WyString context =
        L"reading the catalogs" + (catalog.empty() ? WyString() : L" named like " + Quoted(catalog));
    state.catalogs.Start(state.Connection(context), context);
    // MariaDB lists every database the user may see as a catalog; a connection string that names
    // one asks for that one, unless the request names a catalog pattern of its own.
    const bool everyCatalog = catalog.empty() || catalog == L"%";
    state.catalogPattern =
        everyCatalog && !state.connectionDatabase.empty() ? EscapedName(state.connectionDatabase) : catalog;
    state.catalogsSeen.clear();
    // The special request needs empty (not NULL) schema and table names.
    WideArg all(L"%"); // SQL_ALL_CATALOGS
    WideArg none(L"");
    WideArg any;
    state.catalogs.Opened(Tables(state.catalogs.Statement(), all, none, none, any));
}

void OdbcImport::PrepareForSchema(WyString& catalog, WyString& schema) {
    State& state = *m_state;
    const WyString context = L"reading the schemas" +
                             (catalog.empty() ? WyString() : L" of the catalog " + Quoted(catalog)) +
                             (schema.empty() ? WyString() : L" named like " + Quoted(schema));
    state.schemas.Start(state.Connection(context), context);
    state.schemaCatalog = catalog;
    state.schemaPattern = schema;
    state.schemasSeen.clear();
    WideArg all(L"%"); // SQL_ALL_SCHEMAS
    WideArg none(L"");
    WideArg any;
    state.schemas.Opened(Tables(state.schemas.Statement(), none, all, none, any));
}

void OdbcImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) {
    State& state = *m_state;
    const WyString where = NamePath({&catalog, &schema});
    const WyString context = L"reading the tables" + (where.empty() ? WyString() : L" of " + where) +
                             (table.empty() ? WyString() : L" named like " + Quoted(table));
    state.tables.Start(state.Connection(context), context);
    ++state.listingGeneration;
    state.tablePattern = TableRef{catalog, schema, table};
    state.tableSelector = tableType;
    WideArg catalogArg = PatternArgument(state.dbms, catalog);
    WideArg schemaArg = PatternArgument(state.dbms, schema);
    WideArg tableArg = PatternArgument(state.dbms, table);
    WideArg typesArg = NullIfEmpty(TableTypeList(tableType));
    state.servedTables.Stop();
    state.tables.Opened(Tables(state.tables.Statement(), catalogArg, schemaArg, tableArg, typesArg));
    if (state.dbms == Dbms::MariaDB) {
        state.ServeTablesInFixedOrder();
    }
}

void OdbcImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) {
    State& state = *m_state;
    const WyString where = NamePath({&catalog, &schema, &table});
    const WyString context = L"reading the columns of " + (where.empty() ? WyString(L"every table") : where) +
                             (column.empty() ? WyString() : L" named like " + Quoted(column));
    state.servedColumns.Stop();
    ++state.listingGeneration;
    if (state.ColumnsFromMemory(catalog, schema, table, column)) {
        return;
    }
    if (TooLongForSqliteDriver(table) && state.dbms == Dbms::SQLite) {
        throw ErrorMessage(context +
                           L": the SQLite ODBC driver lists no columns of a table whose name is 512 "
                           L"bytes or longer in UTF-8; leave UDMLGEN_ODBC_PER_TABLE unset, so that "
                           L"the whole schema is read at once, or shorten the name");
    }
    state.columns.Start(state.Connection(context), context);
    state.columnTable = TableRef{catalog, schema, table};
    state.columnPattern = column;
    WideArg catalogArg = LiteralArgument(catalog);
    WideArg schemaArg = PatternArgument(state.dbms, schema);
    WideArg tableArg = PatternArgument(state.dbms, table);
    WideArg columnArg = PatternArgument(state.dbms, column);
    state.columns.Opened(Columns(state.columns.Statement(), catalogArg, schemaArg, tableArg, columnArg));
}

void OdbcImport::PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) {
    State& state = *m_state;
    Listing& listing = state.primaryKeys;
    auto run = [&listing](const TableRef& of) {
        const WyString where = NamePath({&of.catalog, &of.schema, &of.table});
        listing.SetContext(L"reading the primary key of " + where);
        WideArg catalogArg = NullIfEmpty(of.catalog);
        WideArg schemaArg = NullIfEmpty(of.schema);
        WideArg tableArg(of.table);
        listing.Opened(PrimaryKeys(listing.Statement(), catalogArg, schemaArg, tableArg));
    };
    state.servedPrimaryKeys.Stop();
    if (state.PrimaryKeyFromMemory(catalog, schema, table)) {
        return;
    }
    state.keyTable = TableRef{catalog, schema, table};
    if (state.dbms == Dbms::PostgreSQL) {
        SchemaRows<MIPrimaryKey> rows;
        ReadPrimaryKeysPostgres(state.Connection(L"reading primary keys"), schema, table, rows);
        state.primaryKeys.Stop();
        state.servedPrimaryKeys.Start();
        rows.ForTables(WyString(), false,
                       [&](const WyString&, const WyString&, const WyString&, const MIPrimaryKey& key) {
                           if (state.PrimaryKeyWanted(key)) {
                               state.servedPrimaryKeys.records.push_back(key);
                           }
                       });
        return;
    }
    if (!table.empty()) {
        const WyString context = L"reading the primary key of " + NamePath({&catalog, &schema, &table});
        listing.Start(state.Connection(context), context);
        run(state.keyTable);
        return;
    }
    // The driver manager refuses SQLPrimaryKeys without a table name: ask table by table.
    const WyString where = NamePath({&catalog, &schema});
    const WyString context = L"listing the tables" + (where.empty() ? WyString() : L" of " + where) +
                             L" to read their primary keys";
    listing.Start(state.Connection(context), context);
    listing.ForEachTable(state.AllTables(catalog, schema, context), run);
}

void OdbcImport::PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                      WyString& fkCatalog, WyString& fkSchema, WyString& fkTable) {
    State& state = *m_state;
    Listing& listing = state.foreignKeys;
    const TableRef pk{pkCatalog, pkSchema, pkTable};
    auto describe = [](const TableRef& referring, const TableRef& referred) {
        const WyString from = NamePath({&referring.catalog, &referring.schema, &referring.table});
        const WyString to = NamePath({&referred.catalog, &referred.schema, &referred.table});
        WyString text = L"reading the foreign keys";
        if (!from.empty()) {
            text += L" of " + from;
        }
        if (!to.empty()) {
            text += L" that refer to " + to;
        }
        return text;
    };
    auto run = [&listing, pk, describe](const TableRef& fk) {
        listing.SetContext(describe(fk, pk));
        WideArg pkCatalogArg = NullIfEmpty(pk.catalog);
        WideArg pkSchemaArg = NullIfEmpty(pk.schema);
        WideArg pkTableArg = NullIfEmpty(pk.table);
        WideArg fkCatalogArg = NullIfEmpty(fk.catalog);
        WideArg fkSchemaArg = NullIfEmpty(fk.schema);
        WideArg fkTableArg = NullIfEmpty(fk.table);
        listing.Opened(ForeignKeys(listing.Statement(), pkCatalogArg, pkSchemaArg, pkTableArg, fkCatalogArg,
                                   fkSchemaArg, fkTableArg));
    };
    state.servedForeignKeys.Stop();
    if (state.ForeignKeysFromMemory(pk, TableRef{fkCatalog, fkSchema, fkTable})) {
        return;
    }
    state.foreignPk = pk;
    state.foreignFk = TableRef{fkCatalog, fkSchema, fkTable};
    // MariaDB Connector/ODBC's own query costs a scan of every table on the server; the table's
    // keys are read with constant filters instead.
    const bool mariaDbTable = state.dbms == Dbms::MariaDB && state.dialect != Dialect::Plain &&
                              pk.catalog.empty() && pk.schema.empty() && pk.table.empty() &&
                              !fkCatalog.empty() && !fkTable.empty();
    if (state.dbms == Dbms::PostgreSQL || mariaDbTable) {
        SchemaRows<MIForeignKey> rows;
        if (mariaDbTable) {
            ReadForeignKeysMariaDb(state.Connection(L"reading foreign keys"), fkCatalog, fkTable, rows);
        } else {
            ReadForeignKeysPostgres(state.Connection(L"reading foreign keys"), pk, state.foreignFk, rows);
        }
        listing.Stop();
        state.servedForeignKeys.Start();
        rows.ForTables(WyString(), false,
                       [&](const WyString&, const WyString&, const WyString&, const MIForeignKey& key) {
                           if (state.ForeignKeyWanted(key)) {
                               state.servedForeignKeys.records.push_back(key);
                           }
                       });
        return;
    }
    if (!pkTable.empty() || !fkTable.empty()) {
        const WyString context = describe(state.foreignFk, pk);
        listing.Start(state.Connection(context), context);
        run(state.foreignFk);
        if (state.dbms == Dbms::MariaDB) {
            // In the order the whole-database read gives (see OrderForeignKeysMariaDb).
            std::vector<MIForeignKey> keys;
            while (listing.Fetch()) {
                Row row(listing.Statement(), listing.Context());
                MIForeignKey key = ForeignKeyRow(row);
                if (state.ForeignKeyWanted(key)) {
                    keys.push_back(std::move(key));
                }
            }
            listing.Stop();
            OrderForeignKeysMariaDb(keys);
            state.servedForeignKeys.Start();
            state.servedForeignKeys.records = std::move(keys);
        }
        return;
    }
    // The driver manager refuses SQLForeignKeys without any table name: ask for the foreign keys
    // of each table of the foreign-key side in turn.
    const WyString where = NamePath({&fkCatalog, &fkSchema});
    const WyString context = L"listing the tables" + (where.empty() ? WyString() : L" of " + where) +
                             L" to read their foreign keys";
    listing.Start(state.Connection(context), context);
    listing.ForEachTable(state.AllTables(fkCatalog, fkSchema, context), run);
}

bool OdbcImport::Get(MICatalog& record) {
    State& state = *m_state;
    Listing& listing = state.catalogs;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        MITable found = TableRow(row);
        // Rows that name a table come from a driver that ignored SQL_ALL_CATALOGS.
        if (!found.table_.empty() || !MatchesSearchPattern(state.catalogPattern, found.catalog_) ||
            !state.catalogsSeen.insert(found.catalog_).second) {
            continue;
        }
        record = MICatalog();
        record.catalog_ = std::move(found.catalog_);
        record.remarks_ = std::move(found.remarks_);
        return true;
    }
    return false;
}

bool OdbcImport::Get(MISchema& record) {
    State& state = *m_state;
    Listing& listing = state.schemas;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        MITable found = TableRow(row);
        // Rows that name a table come from a driver that ignored SQL_ALL_SCHEMAS.
        if (!found.table_.empty() || !MatchesSearchPattern(state.schemaPattern, found.schema_)) {
            continue;
        }
        if (!state.schemaCatalog.empty() && !found.catalog_.empty() &&
            found.catalog_ != state.schemaCatalog) {
            continue;
        }
        if (!state.schemasSeen.insert({found.catalog_, found.schema_}).second) {
            continue;
        }
        record = MISchema();
        record.catalog_ = std::move(found.catalog_);
        record.schema_ = std::move(found.schema_);
        record.remarks_ = std::move(found.remarks_);
        return true;
    }
    return false;
}

bool OdbcImport::Get(MITable& record) {
    State& state = *m_state;
    if (state.servedTables.active) {
        return state.servedTables.Get(record);
    }
    return state.NextTable(record);
}

bool OdbcImport::Get(MIColumn& record) {
    State& state = *m_state;
    if (state.servedColumns.active) {
        return state.servedColumns.Get(record);
    }
    Listing& listing = state.columns;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        TableRef table;
        CachedColumn cached;
        ColumnShape shape;
        ColumnRow(row, table, cached, shape);
        MIColumn column = MakeColumn(table, cached, shape);
        if (!state.ColumnWanted(column) || !state.Complete(column)) {
            continue;
        }
        record = std::move(column);
        return true;
    }
    return false;
}

bool OdbcImport::Get(MIPrimaryKey& record) {
    State& state = *m_state;
    if (state.servedPrimaryKeys.active) {
        return state.servedPrimaryKeys.Get(record);
    }
    Listing& listing = state.primaryKeys;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        MIPrimaryKey key = PrimaryKeyRow(row);
        if (!state.PrimaryKeyWanted(key)) {
            continue;
        }
        record = std::move(key);
        return true;
    }
    return false;
}

bool OdbcImport::Get(MIForeignKey& record) {
    State& state = *m_state;
    if (state.servedForeignKeys.active) {
        return state.servedForeignKeys.Get(record);
    }
    Listing& listing = state.foreignKeys;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        MIForeignKey key = ForeignKeyRow(row);
        if (!state.ForeignKeyWanted(key)) {
            continue;
        }
        record = std::move(key);
        return true;
    }
    return false;
}

bool OdbcImport::GetFeatures(SUFeaturesTable&, TargetType& targetType) {
    targetType = kTargetDefault;
    return true;
}
