// The ODBC import source: the ODBC 3 catalog functions of unixODBC, called through the wide entry
// points, mapped onto the import records column by column. Search patterns are applied again to
// what the driver returns, since drivers differ in how faithfully they apply them.
#include "import/odbc/OdbcImport.h"

#include "import/SearchPattern.h"
#include "import/odbc/OdbcRules.h"
#include "import/odbc/SchemaRows.h"
#include "import/odbc/Utf16.h"

#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
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
//       10 and NUM_PREC_RADIX 0 for every column. They are passed on as reported.
// NOTE: SQLite3 ODBC lists no system tables: the types 'SYSTEM TABLE','SYSTEM VIEW' select nothing.
// NOTE: SQLite3 ODBC compares the table name of SQLPrimaryKeys and SQLForeignKeys ignoring case
//       and echoes the name as given ("ORDER_LINES" yields the keys of order_lines, so named).
// NOTE: SQLite3 ODBC lists the foreign keys of a table last declared first.

namespace {

using Units = std::vector<SQLWCHAR>;

WyString FromSql(const SQLWCHAR* units, size_t length) {
    std::u16string text(length, u'\0');
    for (size_t i = 0; i < length; ++i) {
        text[i] = static_cast<char16_t>(units[i]);
    }
    return Utf16ToWide(text);
}

WyString Quoted(const WyString& name) {
    return L"\"" + name + L"\"";
}

// "cat"."schema"."table" from the non-empty parts, for messages.
WyString NamePath(std::initializer_list<const WyString*> parts) {
    WyString path;
    for (const WyString* part : parts) {
        if (part->empty()) {
            continue;
        }
        if (!path.empty()) {
            path += L'.';
        }
        path += Quoted(*part);
    }
    return path;
}

// Collects the diagnostic records of `handle` as "SQLSTATE [native] text" messages.
void AddDiagnostics(ErrorMessage& error, SQLSMALLINT handleType, SQLHANDLE handle) {
    if (handle == SQL_NULL_HANDLE) {
        return;
    }
    // Bounded, so that a driver that answers every record number cannot keep us here.
    for (SQLSMALLINT record = 1; record <= 64; ++record) {
        SQLWCHAR state[6] = {};
        SQLINTEGER native = 0;
        Units text(512);
        SQLSMALLINT length = 0;
        SQLRETURN rc = SQLGetDiagRecW(handleType, handle, record, state, &native, text.data(),
                                      static_cast<SQLSMALLINT>(text.size()), &length);
        if (rc == SQL_SUCCESS_WITH_INFO && length >= static_cast<SQLSMALLINT>(text.size())) {
            text.resize(
                static_cast<size_t>(std::min<int>(length + 1, std::numeric_limits<SQLSMALLINT>::max())));
            rc = SQLGetDiagRecW(handleType, handle, record, state, &native, text.data(),
                                static_cast<SQLSMALLINT>(text.size()), &length);
        }
        if (!SQL_SUCCEEDED(rc)) {
            break;
        }
        const size_t shown = std::min(static_cast<size_t>(std::max<SQLSMALLINT>(length, 0)), text.size() - 1);
        error.AddMessage(FromSql(state, 5) + L" [" + std::to_wstring(native) + L"] " +
                         FromSql(text.data(), shown));
    }
}

// The error for a failed call: what was being done, then the driver's diagnostics.
ErrorMessage OdbcError(const WyString& context, SQLSMALLINT handleType, SQLHANDLE handle, SQLRETURN rc) {
    ErrorMessage error(context);
    AddDiagnostics(error, handleType, handle);
    if (error.Messages().size() == 1) {
        error.AddMessage(L"the ODBC driver gave no diagnostic record (return code " + std::to_wstring(rc) +
                         L")");
    }
    return error;
}

void Check(SQLRETURN rc, const WyString& context, SQLSMALLINT handleType, SQLHANDLE handle) {
    if (!SQL_SUCCEEDED(rc)) {
        throw OdbcError(context, handleType, handle, rc);
    }
}

// An ODBC handle of any type, freed with its scope.
class Handle {
public:
    Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Reset(); }

    // Allocates a handle of `type` under `parent`; the failure is thrown with `context`.
    void Allocate(SQLSMALLINT type, SQLHANDLE parent, SQLSMALLINT parentType, const WyString& context) {
        Reset();
        SQLHANDLE handle = SQL_NULL_HANDLE;
        const SQLRETURN rc = SQLAllocHandle(type, parent, &handle);
        if (!SQL_SUCCEEDED(rc)) {
            if (parent == SQL_NULL_HANDLE) {
                throw ErrorMessage(context +
                                   L": the unixODBC driver manager could not set up an environment");
            }
            throw OdbcError(context, parentType, parent, rc);
        }
        m_type = type;
        m_handle = handle;
    }
    void Reset() noexcept {
        if (m_handle != SQL_NULL_HANDLE) {
            SQLFreeHandle(m_type, m_handle);
            m_handle = SQL_NULL_HANDLE;
        }
    }
    SQLHANDLE Get() const { return m_handle; }

private:
    SQLSMALLINT m_type = 0;
    SQLHANDLE m_handle = SQL_NULL_HANDLE;
};

// A text argument of a wide entry point: NUL-terminated UTF-16, or NULL.
class WideArg {
public:
    WideArg() = default;
    explicit WideArg(const WyString& text) : m_isNull(false) {
        const std::u16string units = WideToUtf16(text);
        if (units.size() > static_cast<size_t>(std::numeric_limits<SQLSMALLINT>::max())) {
            throw ErrorMessage(L"the name " + Quoted(text.substr(0, 40)) +
                               L"... is too long to pass to an ODBC driver (more than 32767 UTF-16 units)");
        }
        m_units.assign(units.begin(), units.end());
        m_units.push_back(0);
    }
    SQLWCHAR* Data() { return m_isNull ? nullptr : m_units.data(); }
    SQLSMALLINT Length() const { return m_isNull ? 0 : static_cast<SQLSMALLINT>(m_units.size() - 1); }

private:
    Units m_units;
    bool m_isNull = true;
};

// The empty text means "every name", which ODBC spells NULL.
WideArg NullIfEmpty(const WyString& text) {
    return text.empty() ? WideArg() : WideArg(text);
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

WyString DriverPattern(const WyString& pattern) {
    if (!LocaleLosesNonAscii())
        return pattern;
    WyString driverPattern;
    for (size_t i = 0; i < pattern.size(); ++i) {
        wchar_t c = pattern[i];
        if (c == L'\\' && i + 1 < pattern.size()) {
            c = pattern[++i];
            if (c < 0x80) {
                driverPattern += L'\\';
            }
        }
        driverPattern += c < 0x80 ? c : L'_';
    }
    return driverPattern;
}
WideArg PatternArgument(const WyString& pattern) {
    return NullIfEmpty(DriverPattern(pattern));
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

// A PostgreSQL string literal that reads as `text` whatever standard_conforming_strings says.
WyString PgLiteral(const WyString& text) {
    WyString literal = L"E'";
    for (wchar_t c : text) {
        if (c == L'\\' || c == L'\'') {
            literal += L'\\';
        }
        literal += c;
    }
    return literal + L"'";
}

// An argument that the catalog function takes literally (the catalog of SQLColumns) while the
// caller gave a search pattern: a pattern with "%" selects every name here and is applied
// afterwards; otherwise the escapes are removed and the name passed on.
WideArg LiteralArgument(const WyString& pattern) {
    WyString literal;
    for (size_t i = 0; i < pattern.size(); ++i) {
        wchar_t c = pattern[i];
        if (c == L'\\' && i + 1 < pattern.size()) {
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

// Reads the columns of the current row, in ascending order.
class Row {
public:
    Row(SQLHSTMT statement, const WyString& context) : m_statement(statement), m_context(context) {}

    // NULL is the empty text. Texts of any length are read piece by piece.
    WyString Text(SQLUSMALLINT column) {
        std::u16string text;
        Units chunk(512);
        const size_t room = chunk.size() - 1;
        for (;;) {
            SQLLEN indicator = 0;
            const SQLRETURN rc = SQLGetData(m_statement, column, SQL_C_WCHAR, chunk.data(),
                                            static_cast<SQLLEN>(chunk.size() * sizeof(SQLWCHAR)), &indicator);
            if (rc == SQL_NO_DATA) {
                break; // the previous piece was the last
            }
            Check(rc, ColumnContext(column), SQL_HANDLE_STMT, m_statement);
            if (indicator == SQL_NULL_DATA) {
                return WyString();
            }
            const bool truncated =
                rc == SQL_SUCCESS_WITH_INFO &&
                (indicator == SQL_NO_TOTAL ||
                 (indicator > 0 && static_cast<size_t>(indicator) / sizeof(SQLWCHAR) > room));
            size_t count = 0;
            if (truncated) {
                // The piece is NUL-terminated; a driver may leave part of the room unused rather
                // than split a character.
                while (count < room && chunk[count] != 0) {
                    ++count;
                }
                if (count == 0) {
                    ErrorMessage error(ColumnContext(column));
                    error.AddMessage(L"the ODBC driver reported more text but delivered none");
                    throw error;
                }
            } else {
                count = indicator > 0 ? std::min(static_cast<size_t>(indicator) / sizeof(SQLWCHAR), room) : 0;
            }
            for (size_t i = 0; i < count; ++i) {
                text.push_back(static_cast<char16_t>(chunk[i]));
            }
            if (!truncated) {
                break;
            }
        }
        return Utf16ToWide(text);
    }

    // The signed value; NULL is 0.
    int32_t Signed(SQLUSMALLINT column) {
        SQLINTEGER value = 0;
        SQLLEN indicator = 0;
        const SQLRETURN rc = SQLGetData(m_statement, column, SQL_C_SLONG, &value, sizeof value, &indicator);
        Check(rc, ColumnContext(column), SQL_HANDLE_STMT, m_statement);
        return indicator == SQL_NULL_DATA ? 0 : static_cast<int32_t>(value);
    }
    // NULL and negative values are 0.
    uint32 Unsigned(SQLUSMALLINT column) {
        const int32_t value = Signed(column);
        return value < 0 ? 0 : static_cast<uint32>(value);
    }
    // As Unsigned, held to the range of a 16-bit field rather than wrapped.
    uint16 Small(SQLUSMALLINT column) {
        return static_cast<uint16>(std::min<uint32>(Unsigned(column), std::numeric_limits<uint16>::max()));
    }

private:
    WyString ColumnContext(SQLUSMALLINT column) const {
        return m_context + L" (result column " + std::to_wstring(column) + L")";
    }

    SQLHSTMT m_statement;
    const WyString& m_context;
};

struct TableRef {
    WyString catalog;
    WyString schema;
    WyString table;
};

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
            SQLFreeStmt(m_statement.Get(), SQL_CLOSE);
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
            SQLFreeStmt(m_statement.Get(), SQL_CLOSE);
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
                const SQLRETURN rc = SQLFetch(m_statement.Get());
                if (SQL_SUCCEEDED(rc)) {
                    return true;
                }
                if (rc != SQL_NO_DATA) {
                    // The listing ends here: a later Get answers false instead of failing again.
                    ErrorMessage error = OdbcError(m_context, SQL_HANDLE_STMT, m_statement.Get(), rc);
                    Stop();
                    throw error;
                }
                SQLFreeStmt(m_statement.Get(), SQL_CLOSE);
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

// The column values that depend on the column's type rather than on its name, shared by the many
// columns of one type.
struct ColumnShape {
    WyString catalog;
    int32_t dataType = 0;
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

struct CachedColumn {
    WyString name;
    WyString remarks;
    uint32_t shape = 0;
};

// One kind's whole-schema rows, with the bookkeeping that decides when to read them; a schema
// whose read failed is served by the per-table calls from then on. A schema is read on the request
// for a second table of it, so that a request for one table costs no read of the whole schema.
template <typename Row> struct BulkCache {
    SchemaRows<Row> rows;
    TableRef pending; // catalog and schema of the last request not served from memory
    bool hasPending = false;
    TableRef failed;
    bool hasFailed = false;

    void Clear() {
        rows = SchemaRows<Row>();
        hasPending = false;
        hasFailed = false;
    }

    // True when the rows of (catalog, schema) are in memory, reading them with `load` when due.
    template <typename Load>
    bool Use(const WyString& catalog, const WyString& schema, const WyString& table, size_t& reads,
             Load load) {
        if (rows.Holds(catalog, schema)) {
            return true;
        }
        if (rows.IsLoaded()) {
            rows = SchemaRows<Row>(); // another schema: its rows are no longer wanted
        }
        if (hasFailed && failed.catalog == catalog && failed.schema == schema) {
            return false;
        }
        if (!hasPending || pending.catalog != catalog || pending.schema != schema || pending.table == table) {
            pending = TableRef{catalog, schema, table};
            hasPending = true;
            return false;
        }
        try {
            rows.Reset(catalog, schema);
            load(rows);
            rows.Loaded();
            ++reads;
            return true;
        } catch (const ErrorMessage&) {
            // The per-table calls still answer, and report whatever is really wrong.
            rows = SchemaRows<Row>();
            failed = TableRef{catalog, schema, WyString()};
            hasFailed = true;
            return false;
        }
    }
};

// Records answered from memory, handed out by Get in turn.
template <typename Record> struct Served {
    std::vector<Record> records;
    size_t next = 0;
    bool active = false;

    void Stop() {
        records.clear();
        next = 0;
        active = false;
    }
    void Start() {
        Stop();
        active = true;
    }
    bool Get(Record& record) {
        if (next >= records.size()) {
            return false;
        }
        record = std::move(records[next++]);
        return true;
    }
};

// Runs `sql` and calls `take(row)` for every row of its result.
template <typename Take>
void RunQuery(SQLHDBC connection, const WyString& sql, const WyString& context, Take take) {
    Handle statement;
    statement.Allocate(SQL_HANDLE_STMT, connection, SQL_HANDLE_DBC, context);
    WideArg text(sql);
    SQLRETURN rc = SQLExecDirectW(statement.Get(), text.Data(), SQL_NTS);
    if (rc == SQL_NO_DATA) {
        return;
    }
    Check(rc, context, SQL_HANDLE_STMT, statement.Get());
    SQLSMALLINT resultColumns = 0;
    Check(SQLNumResultCols(statement.Get(), &resultColumns), context, SQL_HANDLE_STMT, statement.Get());
    if (resultColumns == 0) {
        return; // a command, not a query
    }
    while (SQL_SUCCEEDED(rc = SQLFetch(statement.Get()))) {
        Row row(statement.Get(), context);
        take(row);
    }
    if (rc != SQL_NO_DATA) {
        throw OdbcError(context, SQL_HANDLE_STMT, statement.Get(), rc);
    }
}

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

// Reads one SQLColumns row (of `statement`) into its parts.
void ReadColumnRow(Row& row, TableRef& table, CachedColumn& column, ColumnShape& shape) {
    shape.catalog = row.Text(1);
    table.catalog = shape.catalog;
    table.schema = row.Text(2);
    table.table = row.Text(3);
    column.name = row.Text(4);
    shape.dataType = row.Signed(5);
    shape.typeName = row.Text(6);
    shape.precision = row.Unsigned(7);
    shape.length = row.Unsigned(8);
    shape.scale = row.Small(9);
    shape.radix = row.Small(10);
    shape.nullable = row.Small(11);
    column.remarks = row.Text(12);
}

MIColumn MakeColumn(const TableRef& table, const CachedColumn& cached, const ColumnShape& shape) {
    MIColumn column;
    column.catalog_ = shape.catalog;
    column.schema_ = table.schema;
    column.table_ = table.table;
    column.columnName_ = cached.name;
    column.dataType_ = MapOdbcDataType(shape.dataType, shape.typeName);
    column.typeName_ = shape.typeName;
    column.precision_ = shape.precision;
    column.length_ = shape.length;
    column.scale_ = shape.scale;
    column.radix_ = shape.radix;
    column.nullable_ = shape.nullable;
    column.remarks_ = cached.remarks;
    return column;
}

// What psqlODBC's SQLColumns computes from a column's type depends on these attributes of the
// column alone (besides the connection's settings), as its own catalog query reads them; the
// default matters only as far as it makes the column auto-incrementing. Defaults are looked up
// column by column (a join hashes every default of the catalog for each schema), and deparsed
// without their table unless they refer to columns (a generated column's): with the table, the
// server opens every table of the schema, which costs more than the rest of the query.
const wchar_t* const kPgColumnQuery =
    L"select n.nspname, c.relname, a.attname, concat_ws(chr(1), a.atttypid, t.typname, a.attlen, "
    L"a.atttypmod, a.attnotnull, c.relhasrules, c.relkind, case t.typtype when 'd' then t.typbasetype "
    L"else 0 end, t.typtypmod, a.attidentity, c.relhassubclass, a.atthasdef and coalesce((select "
    L"pg_catalog.pg_get_expr(d.adbin, case when d.adbin::text like '%{VAR %' then d.adrelid else 0 end) "
    L"like 'nextval(%' from pg_catalog.pg_attrdef d where d.adrelid = a.attrelid and d.adnum = a.attnum), "
    L"false)) from (((pg_catalog.pg_class c inner join pg_catalog.pg_namespace n on n.oid = "
    L"c.relnamespace and n.nspname like $SCHEMA) inner join pg_catalog.pg_attribute a on (not "
    L"a.attisdropped) and a.attnum > 0 and a.attrelid = c.oid and c.relkind in ('r', 'v', 'm', 'f', 'p')) "
    L"inner join pg_catalog.pg_type t on t.oid = a.atttypid) order by n.nspname, c.relname, a.attnum";

// psqlODBC's SQLColumns lists the columns of every relation whose name matches, indexes,
// sequences and composite types too. Their columns are not kept; a request whose pattern matches
// one of their names is left to the driver.
const wchar_t* const kPgOtherRelationQuery =
    L"select c.relname from pg_catalog.pg_class c inner join pg_catalog.pg_namespace n on n.oid = "
    L"c.relnamespace and n.nspname like $SCHEMA where c.relkind not in ('r', 'v', 'm', 'f', 'p')";

// psqlODBC's SQLPrimaryKeys for every table of one schema: the rows of its first query, without the
// table. Its comma joins plan as a hash join over every attribute of the catalog; walking each key
// index's columns (int2vector subscripts start at 0) reads them through the attribute index.
const wchar_t* const kPgPrimaryKeyQuery =
    L"select pg_catalog.current_database(), n.nspname, tc.relname, ta.attname, ia.attnum, ic.relname from "
    L"pg_catalog.pg_namespace n inner join pg_catalog.pg_class tc on n.oid = tc.relnamespace inner join "
    L"pg_catalog.pg_index i on tc.oid = i.indrelid and i.indisprimary inner join pg_catalog.pg_class ic "
    L"on ic.oid = i.indexrelid cross join lateral pg_catalog.unnest(i.indkey::pg_catalog.int2[]) with "
    L"ordinality k(attnum, n) inner join pg_catalog.pg_attribute ia on ia.attrelid = i.indexrelid and "
    L"ia.attnum = k.n and not ia.attisdropped inner join pg_catalog.pg_attribute ta on ta.attrelid = "
    L"i.indrelid and ta.attnum = k.attnum and not ta.attisdropped where n.nspname = $SCHEMA order by "
    L"tc.relname, ia.attnum";

// For a table without a primary key psqlODBC looks for an index named "<table>_pkey": such
// tables are left to the driver.
const wchar_t* const kPgPkeyIndexQuery =
    L"select c.relname from pg_catalog.pg_class c, pg_catalog.pg_namespace n where n.oid = "
    L"c.relnamespace and n.nspname = $SCHEMA and right(c.relname, 5) = '_pkey'";

// psqlODBC's SQLForeignKeys for every table of one schema on the foreign-key side. The same rows as
// its query gives, but planned from the schema's constraints outwards: its generate_series is
// estimated at a thousand rows a key, which plans hash joins over whole catalogs and, past the
// server's cost threshold, compiles the query (a JIT that costs more than the query).
const wchar_t* const kPgForeignKeyQuery =
    L"select pg_catalog.current_database(), n2.nspname, c2.relname, a2.attname, "
    L"pg_catalog.current_database(), ref.nspname, ref.relname, a1.attname, ref.i::int2, case "
    L"ref.confupdtype when 'c' then 0::int2 when 'n' then 2::int2 when 'd' then 4::int2 when 'r' then "
    L"1::int2 else 3::int2 end, case ref.confdeltype when 'c' then 0::int2 when 'n' then 2::int2 when 'd' "
    L"then 4::int2 when 'r' then 1::int2 else 3::int2 end, ref.conname, cn.conname from (select cn.oid, "
    L"cn.conrelid, cn.conkey, cn.confrelid, cn.confkey, k.i, cn.confupdtype, cn.confdeltype, cn.conname, "
    L"c.relname, n.nspname from pg_catalog.pg_namespace n inner join pg_catalog.pg_class c on n.oid = "
    L"c.relnamespace inner join pg_catalog.pg_constraint cn on cn.conrelid = c.oid and cn.contype = 'f' "
    L"cross join lateral pg_catalog.unnest(cn.conkey) with ordinality k(attnum, i) where n.nspname = "
    L"$SCHEMA) ref inner join pg_catalog.pg_attribute a1 on a1.attrelid = ref.conrelid and a1.attnum = "
    L"ref.conkey[ref.i] inner join pg_catalog.pg_class c2 on c2.oid = ref.confrelid inner join "
    L"pg_catalog.pg_namespace n2 on n2.oid = c2.relnamespace inner join pg_catalog.pg_attribute a2 on "
    L"a2.attrelid = ref.confrelid and a2.attnum = ref.confkey[ref.i] left outer join "
    L"pg_catalog.pg_constraint cn on cn.conrelid = ref.confrelid and cn.contype = 'p' order by "
    L"ref.relname, ref.oid, ref.i";

WyString WithSchema(const wchar_t* query, const WyString& schemaLiteral) {
    WyString sql = query;
    const WyString marker = L"$SCHEMA";
    const size_t at = sql.find(marker);
    sql.replace(at, marker.size(), schemaLiteral);
    return sql;
}

// Every primary-key row of the schema, and the names of its indexes that end in "_pkey".
void ReadPrimaryKeysPostgres(SQLHDBC connection, const WyString& schema, SchemaRows<MIPrimaryKey>& rows,
                             std::set<WyString>& pkeyIndexNames) {
    const WyString context = L"reading the primary keys of every table of the schema " + Quoted(schema);
    RunPagedPgQuery(connection, WithSchema(kPgPrimaryKeyQuery, PgLiteral(schema)), context, [&](Row& row) {
        MIPrimaryKey key;
        key.catalog_ = row.Text(1);
        key.schema_ = row.Text(2);
        key.table_ = row.Text(3);
        key.columnName_ = row.Text(4);
        key.keySequence_ = row.Small(5);
        key.primaryKeyName_ = row.Text(6);
        rows.Add(WyString(), key.schema_, key.table_, key);
    });
    pkeyIndexNames.clear();
    RunQuery(connection, WithSchema(kPgPkeyIndexQuery, PgLiteral(schema)), context,
             [&](Row& row) { pkeyIndexNames.insert(row.Text(1)); });
}

// Every foreign-key row of the schema's tables.
void ReadForeignKeysPostgres(SQLHDBC connection, const WyString& schema, SchemaRows<MIForeignKey>& rows) {
    const WyString context = L"reading the foreign keys of every table of the schema " + Quoted(schema);
    RunPagedPgQuery(connection, WithSchema(kPgForeignKeyQuery, PgLiteral(schema)), context, [&](Row& row) {
        MIForeignKey key;
        key.pkCatalog_ = row.Text(1);
        key.pkSchema_ = row.Text(2);
        key.pkTable_ = row.Text(3);
        key.pkColumnName_ = row.Text(4);
        key.fkCatalog_ = row.Text(5);
        key.fkSchema_ = row.Text(6);
        key.fkTable_ = row.Text(7);
        key.fkColumnName_ = row.Text(8);
        key.keySequence_ = row.Small(9);
        key.updateRule_ = row.Small(10);
        key.deleteRule_ = row.Small(11);
        key.foreignKeyName_ = row.Text(12);
        key.primaryKeyName_ = row.Text(13);
        rows.Add(WyString(), key.fkSchema_, key.fkTable_, key);
    });
}

// Opens `connection` (under a new `environment`) to `source`: a connection string when it contains
// "=", with the user and password appended, otherwise a data source name. Throws with `context`.
void Connect(Handle& environment, Handle& connection, const WyString& source, const WyString& user,
             const WyString& password, const WyString& context) {
    environment.Allocate(SQL_HANDLE_ENV, SQL_NULL_HANDLE, 0, context);
    Check(SQLSetEnvAttr(environment.Get(), SQL_ATTR_ODBC_VERSION,
                        reinterpret_cast<SQLPOINTER>(static_cast<intptr_t>(SQL_OV_ODBC3)), 0),
          context, SQL_HANDLE_ENV, environment.Get());
    connection.Allocate(SQL_HANDLE_DBC, environment.Get(), SQL_HANDLE_ENV, context);
    // A server that does not answer must end in a message, not a hang. Drivers that cannot
    // time out a login refuse the attribute; they connect without it.
    SQLSetConnectAttrW(connection.Get(), SQL_ATTR_LOGIN_TIMEOUT,
                       reinterpret_cast<SQLPOINTER>(static_cast<intptr_t>(15)), 0);
    SQLRETURN rc;
    if (source.find(L'=') != WyString::npos) {
        WideArg text(AppendCredentials(source, user, password));
        rc = SQLDriverConnectW(connection.Get(), nullptr, text.Data(), text.Length(), nullptr, 0, nullptr,
                               SQL_DRIVER_NOPROMPT);
    } else {
        WideArg dsn(source);
        WideArg userArg = NullIfEmpty(user);
        WideArg passwordArg = NullIfEmpty(password);
        rc = SQLConnectW(connection.Get(), dsn.Data(), dsn.Length(), userArg.Data(), userArg.Length(),
                         passwordArg.Data(), passwordArg.Length());
    }
    Check(rc, context, SQL_HANDLE_DBC, connection.Get());
}

// The keys of the schema whose columns are being read, read meanwhile on a second connection of
// its own: the server works on both at once, and the keys are in memory by the time the writer
// asks for them. Whatever goes wrong here is dropped; the main connection then reads the keys
// itself and reports what is really wrong.
class KeyPrefetch {
public:
    ~KeyPrefetch() { Close(); }

    // Remembers how to open the second connection; `source` empty: never prefetch.
    void Configure(const WyString& source, const WyString& user, const WyString& password) {
        Close();
        m_source = source;
        m_user = user;
        m_password = password;
        m_unavailable = source.empty();
    }

    // Starts reading the keys of (`catalog`, `schema`), dropping any that were not taken.
    void Start(const WyString& catalog, const WyString& schema) {
        Finish();
        if (m_unavailable) {
            return;
        }
        m_catalog = catalog;
        m_schema = schema;
        m_primaryKeysRead = false;
        m_foreignKeysRead = false;
        m_primaryKeys.Reset(catalog, schema);
        m_foreignKeys.Reset(catalog, schema);
        m_pkeyIndexNames.clear();
        m_worker = std::thread([this] { Read(); });
    }

    // The primary keys of (`catalog`, `schema`) when they were read here; false otherwise.
    bool TakePrimaryKeys(const WyString& catalog, const WyString& schema, SchemaRows<MIPrimaryKey>& rows,
                         std::set<WyString>& pkeyIndexNames) {
        if (!Wait(catalog, schema, [this] { return m_primaryKeysDone; }) || !m_primaryKeysRead) {
            return false;
        }
        m_primaryKeysRead = false;
        rows = std::move(m_primaryKeys);
        pkeyIndexNames = std::move(m_pkeyIndexNames);
        return true;
    }
    bool TakeForeignKeys(const WyString& catalog, const WyString& schema, SchemaRows<MIForeignKey>& rows) {
        if (!Wait(catalog, schema, [this] { return m_foreignKeysDone; }) || !m_foreignKeysRead) {
            return false;
        }
        m_foreignKeysRead = false;
        rows = std::move(m_foreignKeys);
        return true;
    }

    void Close() noexcept {
        Finish();
        if (m_connected) {
            SQLDisconnect(m_connection.Get());
            m_connected = false;
        }
        m_connection.Reset();
        m_environment.Reset();
        std::fill(m_password.begin(), m_password.end(), L'\0');
        m_source.clear();
        m_user.clear();
        m_password.clear();
        m_unavailable = true;
        m_primaryKeys = SchemaRows<MIPrimaryKey>();
        m_foreignKeys = SchemaRows<MIForeignKey>();
        m_pkeyIndexNames.clear();
        m_primaryKeysRead = false;
        m_foreignKeysRead = false;
    }

private:
    void Finish() noexcept {
        if (m_worker.joinable()) {
            m_worker.join();
        }
        m_primaryKeysDone = false;
        m_foreignKeysDone = false;
    }

    template <typename Done> bool Wait(const WyString& catalog, const WyString& schema, Done done) {
        if (!m_worker.joinable() || catalog != m_catalog || schema != m_schema) {
            return false;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, done);
        return true;
    }

    void Read() noexcept {
        try {
            if (!m_connected) {
                Connect(m_environment, m_connection, m_source, m_user, m_password, L"prefetching keys");
                m_connected = true;
            }
            ReadPrimaryKeysPostgres(m_connection.Get(), m_schema, m_primaryKeys, m_pkeyIndexNames);
            m_primaryKeysRead = true;
        } catch (...) {
            m_unavailable = !m_connected;
        }
        Signal(m_primaryKeysDone);
        try {
            if (m_connected) {
                ReadForeignKeysPostgres(m_connection.Get(), m_schema, m_foreignKeys);
                m_foreignKeysRead = true;
            }
        } catch (...) {
        }
        Signal(m_foreignKeysDone);
    }

    void Signal(bool& done) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            done = true;
        }
        m_changed.notify_all();
    }

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

    // Whole-schema reads, and what they answer.
    Dialect dialect = Dialect::Plain;
    bool perTableOnly = false;
    size_t bulkReads = 0;
    BulkCache<CachedColumn> columnCache;
    std::vector<ColumnShape> shapes;
    std::map<ColumnShape, uint32_t> shapeIndex;
    // The driver's shape of each kind of PostgreSQL column met so far (kinds are what the column
    // query reads), so that the driver is asked about each kind once per connection.
    std::map<WyString, uint32_t> pgShapeOfKind;
    static constexpr uint32_t kNewKind = 0x80000000u;
    std::map<WyString, char> relationsNotRead; // of the schema in columnCache
    BulkCache<MIPrimaryKey> primaryKeyCache;
    std::set<WyString> pkeyIndexNames; // of the schema in primaryKeyCache
    BulkCache<MIForeignKey> foreignKeyCache;
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
            SQLDisconnect(connection.Get());
            connected = false;
        }
        columnCache.Clear();
        shapes.clear();
        shapeIndex.clear();
        pgShapeOfKind.clear();
        relationsNotRead.clear();
        primaryKeyCache.Clear();
        pkeyIndexNames.clear();
        foreignKeyCache.Clear();
        servedColumns.Stop();
        servedPrimaryKeys.Stop();
        servedForeignKeys.Stop();
        dialect = Dialect::Plain;
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

    uint32_t ShapeOf(const ColumnShape& shape) {
        const auto found = shapeIndex.emplace(shape, static_cast<uint32_t>(shapes.size()));
        if (found.second) {
            shapes.push_back(shape);
        }
        return found.first->second;
    }

    // Every column of every table of the catalog and schema (patterns) through one SQLColumns.
    void LoadColumnsWhole(SchemaRows<CachedColumn>& rows, const WyString& catalog, const WyString& schema) {
        const WyString where = NamePath({&catalog, &schema});
        const WyString context =
            L"reading the columns of every table" + (where.empty() ? WyString() : L" of " + where);
        Handle statement;
        statement.Allocate(SQL_HANDLE_STMT, Connection(context), SQL_HANDLE_DBC, context);
        WideArg catalogArg = LiteralArgument(catalog);
        WideArg schemaArg = PatternArgument(schema);
        WideArg all(L"%");
        SQLRETURN rc = SQLColumnsW(statement.Get(), catalogArg.Data(), catalogArg.Length(), schemaArg.Data(),
                                   schemaArg.Length(), all.Data(), all.Length(), all.Data(), all.Length());
        if (rc == SQL_NO_DATA) {
            return;
        }
        Check(rc, context, SQL_HANDLE_STMT, statement.Get());
        while (SQL_SUCCEEDED(rc = SQLFetch(statement.Get()))) {
            Row row(statement.Get(), context);
            TableRef table;
            CachedColumn column;
            ColumnShape shape;
            ReadColumnRow(row, table, column, shape);
            column.shape = ShapeOf(shape);
            rows.Add(table.catalog, table.schema, table.table, std::move(column));
        }
        if (rc != SQL_NO_DATA) {
            throw OdbcError(context, SQL_HANDLE_STMT, statement.Get(), rc);
        }
    }

    // What the driver's SQLColumns says about the one column `column` of `table`.
    ColumnShape DriverShape(const WyString& catalog, const TableRef& table, const WyString& column) {
        const WyString context = L"reading the column " + NamePath({&table.schema, &table.table, &column});
        Handle statement;
        statement.Allocate(SQL_HANDLE_STMT, Connection(context), SQL_HANDLE_DBC, context);
        WideArg catalogArg = LiteralArgument(catalog);
        WideArg schemaArg = PatternArgument(EscapedName(table.schema));
        WideArg tableArg = PatternArgument(EscapedName(table.table));
        WideArg columnArg = PatternArgument(EscapedName(column));
        SQLRETURN rc = SQLColumnsW(statement.Get(), catalogArg.Data(), catalogArg.Length(), schemaArg.Data(),
                                   schemaArg.Length(), tableArg.Data(), tableArg.Length(), columnArg.Data(),
                                   columnArg.Length());
        if (rc != SQL_NO_DATA) {
            Check(rc, context, SQL_HANDLE_STMT, statement.Get());
            while (SQL_SUCCEEDED(rc = SQLFetch(statement.Get()))) {
                Row row(statement.Get(), context);
                TableRef found;
                CachedColumn cached;
                ColumnShape shape;
                ReadColumnRow(row, found, cached, shape);
                if (found.schema == table.schema && found.table == table.table && cached.name == column) {
                    if (!cached.remarks.empty()) {
                        // Remarks are the column's own: one column cannot speak for the others.
                        throw ErrorMessage(context + L": the driver reports remarks");
                    }
                    return shape;
                }
            }
        }
        throw ErrorMessage(context + L": the driver does not list the column");
    }

    // Every column of the schema from pg_catalog, with what psqlODBC computes from the type taken
    // from the driver itself, once per distinct kind of column.
    void LoadColumnsPostgres(SchemaRows<CachedColumn>& rows, const WyString& catalog,
                             const WyString& schema) {
        const WyString context = L"reading the columns of every table of the schema " + Quoted(schema);
        std::map<WyString, uint32_t> kinds; // new to this connection, numbered from 0
        std::vector<std::pair<TableRef, WyString>> representatives;
        const WyString schemaLike = PgLiteral(DriverPattern(schema));
        keyPrefetch.Start(catalog, schema);
        relationsNotRead.clear();
        RunQuery(Connection(context), WithSchema(kPgOtherRelationQuery, schemaLike), context,
                 [&](Row& row) { relationsNotRead.emplace(row.Text(1), '\0'); });
        RunPagedPgQuery(Connection(context), WithSchema(kPgColumnQuery, schemaLike), context, [&](Row& row) {
            TableRef table{WyString(), row.Text(1), row.Text(2)};
            CachedColumn column;
            column.name = row.Text(3);
            WyString kind = row.Text(4);
            const auto known = pgShapeOfKind.find(kind);
            if (known != pgShapeOfKind.end()) {
                column.shape = known->second;
            } else {
                const auto added = kinds.emplace(std::move(kind), static_cast<uint32_t>(kinds.size()));
                if (added.second) {
                    representatives.emplace_back(table, column.name);
                }
                column.shape = kNewKind | added.first->second; // the kind until its shape is known
            }
            rows.Add(WyString(), table.schema, table.table, std::move(column));
        });
        if (kinds.empty()) {
            return;
        }
        std::vector<uint32_t> shapeOfKind(kinds.size());
        for (auto& kind : kinds) {
            const auto& representative = representatives[kind.second];
            shapeOfKind[kind.second] =
                ShapeOf(DriverShape(catalog, representative.first, representative.second));
            pgShapeOfKind.emplace(kind.first, shapeOfKind[kind.second]);
        }
        rows.ForEachRow([&shapeOfKind](CachedColumn& column) {
            if ((column.shape & kNewKind) != 0) {
                column.shape = shapeOfKind[column.shape & ~kNewKind];
            }
        });
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
        const bool inMemory =
            columnCache.Use(catalog, schema, table, bulkReads, [&](SchemaRows<CachedColumn>& rows) {
                if (dialect == Dialect::Postgres) {
                    LoadColumnsPostgres(rows, catalog, schema);
                } else {
                    LoadColumnsWhole(rows, catalog, schema);
                }
            });
        if (!inMemory || !NamesMatching(relationsNotRead, table).empty()) {
            return false;
        }
        columns.Stop();
        servedColumns.Start();
        columnTable = TableRef{catalog, schema, table};
        columnPattern = column;
        columnCache.rows.ForTables(table, false,
                                   [this](const WyString&, const WyString& ofSchema, const WyString& ofTable,
                                          const CachedColumn& cached) {
                                       MIColumn record = MakeColumn(TableRef{WyString(), ofSchema, ofTable},
                                                                    cached, shapes[cached.shape]);
                                       if (ColumnWanted(record)) {
                                           servedColumns.records.push_back(std::move(record));
                                       }
                                   });
        return true;
    }

    bool PrimaryKeyFromMemory(const WyString& catalog, const WyString& schema, const WyString& table) {
        if (dialect != Dialect::Postgres || !connected || table.empty() || schema.empty()) {
            return false;
        }
        const bool inMemory =
            primaryKeyCache.Use(catalog, schema, table, bulkReads, [&](SchemaRows<MIPrimaryKey>& rows) {
                if (!keyPrefetch.TakePrimaryKeys(catalog, schema, rows, pkeyIndexNames)) {
                    ReadPrimaryKeysPostgres(Connection(L"reading primary keys"), schema, rows,
                                            pkeyIndexNames);
                }
            });
        if (!inMemory) {
            return false;
        }
        const TableRef wanted{catalog, schema, table};
        std::vector<MIPrimaryKey> found;
        primaryKeyCache.rows.ForTables(table, true,
                                       [&](const WyString&, const WyString&, const WyString&,
                                           const MIPrimaryKey& key) { found.push_back(key); });
        if (found.empty() && pkeyIndexNames.count(table + L"_pkey") != 0) {
            return false;
        }
        primaryKeys.Stop();
        servedPrimaryKeys.Start();
        keyTable = wanted;
        for (MIPrimaryKey& key : found) {
            if (PrimaryKeyWanted(key)) {
                servedPrimaryKeys.records.push_back(std::move(key));
            }
        }
        return true;
    }

    bool ForeignKeysFromMemory(const TableRef& pk, const TableRef& fk) {
        if (dialect != Dialect::Postgres || !connected || !pk.catalog.empty() || !pk.schema.empty() ||
            !pk.table.empty() || fk.table.empty() || fk.schema.empty()) {
            return false;
        }
        const bool inMemory = foreignKeyCache.Use(
            fk.catalog, fk.schema, fk.table, bulkReads, [&](SchemaRows<MIForeignKey>& rows) {
                if (!keyPrefetch.TakeForeignKeys(fk.catalog, fk.schema, rows)) {
                    ReadForeignKeysPostgres(Connection(L"reading foreign keys"), fk.schema, rows);
                }
            });
        if (!inMemory) {
            return false;
        }
        foreignKeys.Stop();
        servedForeignKeys.Start();
        foreignPk = pk;
        foreignFk = fk;
        foreignKeyCache.rows.ForTables(
            fk.table, true,
            [this](const WyString&, const WyString&, const WyString&, const MIForeignKey& key) {
                if (ForeignKeyWanted(key)) {
                    servedForeignKeys.records.push_back(key);
                }
            });
        return true;
    }

    // Every table of the catalog and schema (exact names), of every type, in the driver's order.
    std::vector<TableRef> AllTables(const WyString& catalog, const WyString& schema,
                                    const WyString& context) {
        Handle statement;
        statement.Allocate(SQL_HANDLE_STMT, Connection(context), SQL_HANDLE_DBC, context);
        WideArg catalogArg = NullIfEmpty(catalog);
        WideArg schemaArg = NullIfEmpty(schema);
        SQLRETURN rc = SQLTablesW(statement.Get(), catalogArg.Data(), catalogArg.Length(), schemaArg.Data(),
                                  schemaArg.Length(), nullptr, 0, nullptr, 0);
        std::vector<TableRef> found;
        if (rc == SQL_NO_DATA) {
            return found;
        }
        Check(rc, context, SQL_HANDLE_STMT, statement.Get());
        while (SQL_SUCCEEDED(rc = SQLFetch(statement.Get()))) {
            Row row(statement.Get(), context);
            TableRef table;
            table.catalog = row.Text(1); // <- TABLE_CAT
            table.schema = row.Text(2);  // <- TABLE_SCHEM
            table.table = row.Text(3);   // <- TABLE_NAME
            // The schema argument of SQLTables is a pattern; these names are exact.
            if (ExactAllows(catalog, table.catalog) && ExactAllows(schema, table.schema) &&
                !table.table.empty()) {
                found.push_back(std::move(table));
            }
        }
        if (rc != SQL_NO_DATA) {
            throw OdbcError(context, SQL_HANDLE_STMT, statement.Get(), rc);
        }
        return found;
    }
};

namespace {

WyString InfoText(SQLHDBC connection, SQLUSMALLINT item) {
    SQLWCHAR text[256] = {};
    SQLSMALLINT length = 0;
    if (!SQL_SUCCEEDED(SQLGetInfoW(connection, item, text, sizeof text, &length))) {
        return WyString();
    }
    const size_t units = std::min(static_cast<size_t>(std::max<SQLSMALLINT>(length, 0)) / sizeof(SQLWCHAR),
                                  sizeof text / sizeof text[0] - 1);
    return FromSql(text, units);
}

// Only where the whole-schema reads were checked against the driver's per-table answers.
Dialect DetectDialect(SQLHDBC connection) {
    const WyString dbms = InfoText(connection, SQL_DBMS_NAME);
    const WyString driver = InfoText(connection, SQL_DRIVER_NAME);
    if (dbms == L"PostgreSQL" && driver.compare(0, 8, L"psqlodbc") == 0) {
        return Dialect::Postgres;
    }
    if ((dbms == L"SQLite" && driver.compare(0, 11, L"sqlite3odbc") == 0) ||
        (dbms == L"MariaDB" && driver.compare(0, 9, L"libmaodbc") == 0)) {
        return Dialect::WholeSchema;
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
    return m_state->bulkReads;
}

OdbcImport::~OdbcImport() {
    CloseConnection();
}

void OdbcImport::OpenConnection(WyString& source, WyString& user, WyString& password, bool) {
    CloseConnection();
    State& state = *m_state;
    const bool isConnectionString = source.find(L'=') != WyString::npos;
    const WyString connectionString =
        isConnectionString ? AppendCredentials(source, user, password) : WyString();
    const WyString context =
        isConnectionString
            ? L"connecting with the connection string " + Quoted(HidePasswords(connectionString))
            : L"connecting to the data source " + Quoted(source) +
                  (user.empty() ? WyString() : L" as user " + Quoted(user));
    try {
        Connect(state.environment, state.connection, source, user, password, context);
        state.connected = true;
        state.dialect = state.perTableOnly ? Dialect::Plain : DetectDialect(state.connection.Get());
        if (state.dialect == Dialect::Postgres) {
            state.keyPrefetch.Configure(source, user, password);
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
    state.catalogPattern = catalog;
    state.catalogsSeen.clear();
    // The special request needs empty (not NULL) schema and table names.
    WideArg all(L"%"); // SQL_ALL_CATALOGS
    WideArg none(L"");
    state.catalogs.Opened(SQLTablesW(state.catalogs.Statement(), all.Data(), all.Length(), none.Data(), 0,
                                     none.Data(), 0, nullptr, 0));
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
    state.schemas.Opened(SQLTablesW(state.schemas.Statement(), none.Data(), 0, all.Data(), all.Length(),
                                    none.Data(), 0, nullptr, 0));
}

void OdbcImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) {
    State& state = *m_state;
    const WyString where = NamePath({&catalog, &schema});
    const WyString context = L"reading the tables" + (where.empty() ? WyString() : L" of " + where) +
                             (table.empty() ? WyString() : L" named like " + Quoted(table));
    state.tables.Start(state.Connection(context), context);
    state.tablePattern = TableRef{catalog, schema, table};
    state.tableSelector = tableType;
    WideArg catalogArg = PatternArgument(catalog);
    WideArg schemaArg = PatternArgument(schema);
    WideArg tableArg = PatternArgument(table);
    WideArg typesArg = NullIfEmpty(TableTypeList(tableType));
    state.tables.Opened(SQLTablesW(state.tables.Statement(), catalogArg.Data(), catalogArg.Length(),
                                   schemaArg.Data(), schemaArg.Length(), tableArg.Data(), tableArg.Length(),
                                   typesArg.Data(), typesArg.Length()));
}

void OdbcImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) {
    State& state = *m_state;
    const WyString where = NamePath({&catalog, &schema, &table});
    const WyString context = L"reading the columns of " + (where.empty() ? WyString(L"every table") : where) +
                             (column.empty() ? WyString() : L" named like " + Quoted(column));
    state.servedColumns.Stop();
    if (state.ColumnsFromMemory(catalog, schema, table, column)) {
        return;
    }
    state.columns.Start(state.Connection(context), context);
    state.columnTable = TableRef{catalog, schema, table};
    state.columnPattern = column;
    WideArg catalogArg = LiteralArgument(catalog);
    WideArg schemaArg = PatternArgument(schema);
    WideArg tableArg = PatternArgument(table);
    WideArg columnArg = PatternArgument(column);
    state.columns.Opened(SQLColumnsW(state.columns.Statement(), catalogArg.Data(), catalogArg.Length(),
                                     schemaArg.Data(), schemaArg.Length(), tableArg.Data(), tableArg.Length(),
                                     columnArg.Data(), columnArg.Length()));
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
        listing.Opened(SQLPrimaryKeysW(listing.Statement(), catalogArg.Data(), catalogArg.Length(),
                                       schemaArg.Data(), schemaArg.Length(), tableArg.Data(),
                                       tableArg.Length()));
    };
    state.servedPrimaryKeys.Stop();
    if (state.PrimaryKeyFromMemory(catalog, schema, table)) {
        return;
    }
    state.keyTable = TableRef{catalog, schema, table};
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
        listing.Opened(SQLForeignKeysW(listing.Statement(), pkCatalogArg.Data(), pkCatalogArg.Length(),
                                       pkSchemaArg.Data(), pkSchemaArg.Length(), pkTableArg.Data(),
                                       pkTableArg.Length(), fkCatalogArg.Data(), fkCatalogArg.Length(),
                                       fkSchemaArg.Data(), fkSchemaArg.Length(), fkTableArg.Data(),
                                       fkTableArg.Length()));
    };
    state.servedForeignKeys.Stop();
    if (state.ForeignKeysFromMemory(pk, TableRef{fkCatalog, fkSchema, fkTable})) {
        return;
    }
    state.foreignPk = pk;
    state.foreignFk = TableRef{fkCatalog, fkSchema, fkTable};
    if (!pkTable.empty() || !fkTable.empty()) {
        const WyString context = describe(state.foreignFk, pk);
        listing.Start(state.Connection(context), context);
        run(state.foreignFk);
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
        WyString catalog = row.Text(1); // catalog_ <- TABLE_CAT
        // Rows that name a table come from a driver that ignored SQL_ALL_CATALOGS.
        if (!row.Text(3).empty()) { // TABLE_NAME
            continue;
        }
        WyString remarks = row.Text(5); // remarks_ <- REMARKS
        if (!MatchesSearchPattern(state.catalogPattern, catalog) ||
            !state.catalogsSeen.insert(catalog).second) {
            continue;
        }
        record = MICatalog();
        record.catalog_ = std::move(catalog);
        record.remarks_ = std::move(remarks);
        return true;
    }
    return false;
}

bool OdbcImport::Get(MISchema& record) {
    State& state = *m_state;
    Listing& listing = state.schemas;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        WyString catalog = row.Text(1); // catalog_ <- TABLE_CAT
        WyString schema = row.Text(2);  // schema_ <- TABLE_SCHEM
        // Rows that name a table come from a driver that ignored SQL_ALL_SCHEMAS.
        if (!row.Text(3).empty()) { // TABLE_NAME
            continue;
        }
        WyString remarks = row.Text(5); // remarks_ <- REMARKS
        if (!MatchesSearchPattern(state.schemaPattern, schema)) {
            continue;
        }
        if (!state.schemaCatalog.empty() && !catalog.empty() && catalog != state.schemaCatalog) {
            continue;
        }
        if (!state.schemasSeen.insert({catalog, schema}).second) {
            continue;
        }
        record = MISchema();
        record.catalog_ = std::move(catalog);
        record.schema_ = std::move(schema);
        record.remarks_ = std::move(remarks);
        return true;
    }
    return false;
}

bool OdbcImport::Get(MITable& record) {
    State& state = *m_state;
    Listing& listing = state.tables;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        MITable table;
        table.catalog_ = row.Text(1);   // catalog_ <- TABLE_CAT
        table.schema_ = row.Text(2);    // schema_ <- TABLE_SCHEM
        table.table_ = row.Text(3);     // table_ <- TABLE_NAME
        table.tableType_ = row.Text(4); // tableType_ <- TABLE_TYPE
        table.remarks_ = row.Text(5);   // remarks_ <- REMARKS
        const TableRef& wanted = state.tablePattern;
        if (!TableTypeSelected(state.tableSelector, table.tableType_) ||
            !PatternAllows(wanted.catalog, table.catalog_) || !PatternAllows(wanted.schema, table.schema_) ||
            !MatchesSearchPattern(wanted.table, table.table_)) {
            continue;
        }
        record = std::move(table);
        return true;
    }
    return false;
}

bool OdbcImport::Get(MIColumn& record) {
    State& state = *m_state;
    if (state.servedColumns.active) {
        return state.servedColumns.Get(record);
    }
    Listing& listing = state.columns;
    while (listing.Fetch()) {
        Row row(listing.Statement(), listing.Context());
        MIColumn column;
        column.catalog_ = row.Text(1);    // catalog_ <- TABLE_CAT
        column.schema_ = row.Text(2);     // schema_ <- TABLE_SCHEM
        column.table_ = row.Text(3);      // table_ <- TABLE_NAME
        column.columnName_ = row.Text(4); // columnName_ <- COLUMN_NAME
        const int32_t dataType = row.Signed(5);
        column.typeName_ = row.Text(6);                                 // typeName_ <- TYPE_NAME
        column.dataType_ = MapOdbcDataType(dataType, column.typeName_); // dataType_ <- DATA_TYPE, TYPE_NAME
        column.precision_ = row.Unsigned(7);                            // precision_ <- COLUMN_SIZE
        column.length_ = row.Unsigned(8);                               // length_ <- BUFFER_LENGTH
        column.scale_ = row.Small(9);                                   // scale_ <- DECIMAL_DIGITS
        column.radix_ = row.Small(10);                                  // radix_ <- NUM_PREC_RADIX
        column.nullable_ = row.Small(11);                               // nullable_ <- NULLABLE
        column.remarks_ = row.Text(12);                                 // remarks_ <- REMARKS
        if (!state.ColumnWanted(column)) {
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
        MIPrimaryKey key;
        key.catalog_ = row.Text(1);        // catalog_ <- TABLE_CAT
        key.schema_ = row.Text(2);         // schema_ <- TABLE_SCHEM
        key.table_ = row.Text(3);          // table_ <- TABLE_NAME
        key.columnName_ = row.Text(4);     // columnName_ <- COLUMN_NAME
        key.keySequence_ = row.Small(5);   // keySequence_ <- KEY_SEQ
        key.primaryKeyName_ = row.Text(6); // primaryKeyName_ <- PK_NAME
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
        MIForeignKey key;
        key.pkCatalog_ = row.Text(1);       // pkCatalog_ <- PKTABLE_CAT
        key.pkSchema_ = row.Text(2);        // pkSchema_ <- PKTABLE_SCHEM
        key.pkTable_ = row.Text(3);         // pkTable_ <- PKTABLE_NAME
        key.pkColumnName_ = row.Text(4);    // pkColumnName_ <- PKCOLUMN_NAME
        key.fkCatalog_ = row.Text(5);       // fkCatalog_ <- FKTABLE_CAT
        key.fkSchema_ = row.Text(6);        // fkSchema_ <- FKTABLE_SCHEM
        key.fkTable_ = row.Text(7);         // fkTable_ <- FKTABLE_NAME
        key.fkColumnName_ = row.Text(8);    // fkColumnName_ <- FKCOLUMN_NAME
        key.keySequence_ = row.Small(9);    // keySequence_ <- KEY_SEQ
        key.updateRule_ = row.Small(10);    // updateRule_ <- UPDATE_RULE
        key.deleteRule_ = row.Small(11);    // deleteRule_ <- DELETE_RULE
        key.foreignKeyName_ = row.Text(12); // foreignKeyName_ <- FK_NAME
        key.primaryKeyName_ = row.Text(13); // primaryKeyName_ <- PK_NAME
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
