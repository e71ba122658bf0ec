// The plumbing under the ODBC import source: handles freed with their scope, wide text arguments,
// result rows read column by column, and every failure thrown as ErrorMessage carrying the driver's
// diagnostic records.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/Utf16.h"
#include "platform/ErrorMessage.h"
#include "platform/WyString.h"

#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

namespace odbc {

using Units = std::vector<SQLWCHAR>;

WyString FromSql(const SQLWCHAR* units, size_t length);
// The name in double quotes, for messages.
WyString Quoted(const WyString& name);
// "cat"."schema"."table" from the non-empty parts, for messages.
WyString NamePath(std::initializer_list<const WyString*> parts);
// The error for a failed call: what was being done, then the driver's diagnostics.
ErrorMessage OdbcError(const WyString& context, SQLSMALLINT handleType, SQLHANDLE handle, SQLRETURN rc);
// Throws OdbcError unless `rc` is a success.
void Check(SQLRETURN rc, const WyString& context, SQLSMALLINT handleType, SQLHANDLE handle);

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
inline WideArg NullIfEmpty(const WyString& text) {
    return text.empty() ? WideArg() : WideArg(text);
}

// Where to connect, decided once from what the caller gave: a connection string when the text
// contains "=" (the user and password then appended to it), otherwise a data source name with the
// user and password beside it. Every place that connects is handed this value.
class DataSource {
public:
    DataSource() = default;
    DataSource(const WyString& source, const WyString& user, const WyString& password);
    DataSource(const DataSource&) = default;
    DataSource& operator=(const DataSource&) = default;
    ~DataSource() { Forget(); }

    bool Empty() const { return m_source.empty(); }
    bool IsConnectionString() const { return m_isConnectionString; }
    // The connection string with the credentials appended; empty for a data source name.
    const WyString& ConnectionString() const { return m_connectionString; }
    const WyString& Name() const { return m_source; }
    const WyString& User() const { return m_user; }
    const WyString& Password() const { return m_password; }
    // What is being connected to, passwords hidden: "connecting to the data source ..." or
    // "connecting with the connection string ...".
    WyString Describe() const;
    // Wipes the password and forgets the rest.
    void Forget() noexcept;

private:
    WyString m_source;
    WyString m_user;
    WyString m_password;
    bool m_isConnectionString = false;
    WyString m_connectionString;
};

// The catalog functions and statement calls of the source, the one place that calls them: empty
// WideArg arguments are passed as NULL (length 0), others with their length.
SQLRETURN Tables(SQLHSTMT statement, WideArg& catalog, WideArg& schema, WideArg& table, WideArg& types);
SQLRETURN Columns(SQLHSTMT statement, WideArg& catalog, WideArg& schema, WideArg& table, WideArg& column);
SQLRETURN PrimaryKeys(SQLHSTMT statement, WideArg& catalog, WideArg& schema, WideArg& table);
SQLRETURN ForeignKeys(SQLHSTMT statement, WideArg& pkCatalog, WideArg& pkSchema, WideArg& pkTable,
                      WideArg& fkCatalog, WideArg& fkSchema, WideArg& fkTable);
SQLRETURN Fetch(SQLHSTMT statement);
// Closes the statement's cursor; never fails.
void CloseCursor(SQLHSTMT statement) noexcept;
// Ends the connection; never fails.
void Disconnect(SQLHDBC connection) noexcept;
// The text of an SQLGetInfo item; empty when the driver does not answer.
WyString InfoText(SQLHDBC connection, SQLUSMALLINT item);

// Opens `connection` (under a new `environment`) to `source`. Throws with `context`.
void Connect(Handle& environment, Handle& connection, const DataSource& source, const WyString& context);

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

// Allocates a statement on `connection`, runs `call(statement)` (a catalog function or a query),
// checks its result and calls `take(row)` for every row. A call that yields no result set (no data,
// or a command) takes nothing.
template <typename Call, typename Take>
void RunCatalogCall(SQLHDBC connection, const WyString& context, Call call, Take take) {
    Handle statement;
    statement.Allocate(SQL_HANDLE_STMT, connection, SQL_HANDLE_DBC, context);
    SQLRETURN rc = call(statement.Get());
    if (rc == SQL_NO_DATA) {
        return;
    }
    Check(rc, context, SQL_HANDLE_STMT, statement.Get());
    SQLSMALLINT resultColumns = 0;
    Check(SQLNumResultCols(statement.Get(), &resultColumns), context, SQL_HANDLE_STMT, statement.Get());
    if (resultColumns == 0) {
        return;
    }
    while (SQL_SUCCEEDED(rc = Fetch(statement.Get()))) {
        Row row(statement.Get(), context);
        take(row);
    }
    if (rc != SQL_NO_DATA) {
        throw OdbcError(context, SQL_HANDLE_STMT, statement.Get(), rc);
    }
}

// Runs `sql` and calls `take(row)` for every row of its result.
template <typename Take>
void RunQuery(SQLHDBC connection, const WyString& sql, const WyString& context, Take take) {
    WideArg text(sql);
    RunCatalogCall(
        connection, context,
        [&text](SQLHSTMT statement) { return SQLExecDirectW(statement, text.Data(), SQL_NTS); }, take);
}

} // namespace odbc
