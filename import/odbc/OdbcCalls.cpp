// The plumbing under the ODBC import source: diagnostics, the data source to connect to, and the
// connection itself.
#include "import/odbc/OdbcCalls.h"

#include "import/odbc/OdbcRules.h"

#include <algorithm>

namespace odbc {

namespace {

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

} // namespace

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

DataSource::DataSource(const WyString& source, const WyString& user, const WyString& password)
    : m_source(source), m_user(user), m_password(password),
      m_isConnectionString(source.find(L'=') != WyString::npos) {
    if (m_isConnectionString) {
        m_connectionString = AppendCredentials(source, user, password);
    }
}

WyString DataSource::Describe() const {
    if (m_isConnectionString) {
        return L"connecting with the connection string " + Quoted(HidePasswords(m_connectionString));
    }
    return L"connecting to the data source " + Quoted(m_source) +
           (m_user.empty() ? WyString() : L" as user " + Quoted(m_user));
}

void DataSource::Forget() noexcept {
    std::fill(m_password.begin(), m_password.end(), L'\0');
    std::fill(m_connectionString.begin(), m_connectionString.end(), L'\0');
    m_source.clear();
    m_user.clear();
    m_password.clear();
    m_connectionString.clear();
    m_isConnectionString = false;
}

void Connect(Handle& environment, Handle& connection, const DataSource& source, const WyString& context) {
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
    if (source.IsConnectionString()) {
        WideArg text(source.ConnectionString());
        rc = SQLDriverConnectW(connection.Get(), nullptr, text.Data(), text.Length(), nullptr, 0, nullptr,
                               SQL_DRIVER_NOPROMPT);
    } else {
        WideArg dsn(source.Name());
        WideArg userArg = NullIfEmpty(source.User());
        WideArg passwordArg = NullIfEmpty(source.Password());
        rc = SQLConnectW(connection.Get(), dsn.Data(), dsn.Length(), userArg.Data(), userArg.Length(),
                         passwordArg.Data(), passwordArg.Length());
    }
    Check(rc, context, SQL_HANDLE_DBC, connection.Get());
}

SQLRETURN Tables(SQLHSTMT statement, WideArg& catalog, WideArg& schema, WideArg& table, WideArg& types) {
    return SQLTablesW(statement, catalog.Data(), catalog.Length(), schema.Data(), schema.Length(),
                      table.Data(), table.Length(), types.Data(), types.Length());
}

SQLRETURN Columns(SQLHSTMT statement, WideArg& catalog, WideArg& schema, WideArg& table, WideArg& column) {
    return SQLColumnsW(statement, catalog.Data(), catalog.Length(), schema.Data(), schema.Length(),
                       table.Data(), table.Length(), column.Data(), column.Length());
}

SQLRETURN PrimaryKeys(SQLHSTMT statement, WideArg& catalog, WideArg& schema, WideArg& table) {
    return SQLPrimaryKeysW(statement, catalog.Data(), catalog.Length(), schema.Data(), schema.Length(),
                           table.Data(), table.Length());
}

SQLRETURN ForeignKeys(SQLHSTMT statement, WideArg& pkCatalog, WideArg& pkSchema, WideArg& pkTable,
                      WideArg& fkCatalog, WideArg& fkSchema, WideArg& fkTable) {
    return SQLForeignKeysW(statement, pkCatalog.Data(), pkCatalog.Length(), pkSchema.Data(),
                           pkSchema.Length(), pkTable.Data(), pkTable.Length(), fkCatalog.Data(),
                           fkCatalog.Length(), fkSchema.Data(), fkSchema.Length(), fkTable.Data(),
                           fkTable.Length());
}

SQLRETURN Fetch(SQLHSTMT statement) {
    return SQLFetch(statement);
}

void CloseCursor(SQLHSTMT statement) noexcept {
    SQLFreeStmt(statement, SQL_CLOSE);
}

void Disconnect(SQLHDBC connection) noexcept {
    SQLDisconnect(connection);
}

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

} // namespace odbc
