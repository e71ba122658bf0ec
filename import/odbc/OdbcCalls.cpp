#include "import/odbc/OdbcCalls.h"

#include "import/odbc/OdbcRules.h"

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

void Connect(Handle& environment, Handle& connection, const WyString& source, const WyString& user,
             const WyString& password, const WyString& context) {
    environment.Allocate(SQL_HANDLE_ENV, SQL_NULL_HANDLE, 0, context);
    Check(SQLSetEnvAttr(environment.Get(), SQL_ATTR_ODBC_VERSION,
                        reinterpret_cast<SQLPOINTER>(static_cast<intptr_t>(SQL_OV_ODBC3)), 0),
          context, SQL_HANDLE_ENV, environment.Get());
    connection.Allocate(SQL_HANDLE_DBC, environment.Get(), SQL_HANDLE_ENV, context);
    // A server that does not answer must end in a message, not a hang. Drivers that cannot
    // time out a login refuse the attribute; they connect without it.
    const unsigned loginSeconds = Timeout() != 0 ? Timeout() : 15;
    SQLSetConnectAttrW(connection.Get(), SQL_ATTR_LOGIN_TIMEOUT,
                       reinterpret_cast<SQLPOINTER>(static_cast<uintptr_t>(loginSeconds)), 0);
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

MIPrimaryKey PrimaryKeyRow(Row& row) {
    MIPrimaryKey key;
    key.catalog_ = row.Text(1);        // catalog_ <- TABLE_CAT
    key.schema_ = row.Text(2);         // schema_ <- TABLE_SCHEM
    key.table_ = row.Text(3);          // table_ <- TABLE_NAME
    key.columnName_ = row.Text(4);     // columnName_ <- COLUMN_NAME
    key.keySequence_ = row.Small(5);   // keySequence_ <- KEY_SEQ
    key.primaryKeyName_ = row.Text(6); // primaryKeyName_ <- PK_NAME
    return key;
}

MIForeignKey ForeignKeyRow(Row& row) {
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
    return key;
}

} // namespace odbc
