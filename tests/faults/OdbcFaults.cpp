// An ODBC fault injector, loaded with LD_PRELOAD in front of the unixODBC driver manager: it counts
// the ODBC calls a process makes and makes the n-th one fail with a chosen SQLSTATE, so that the
// tests can break every ODBC call of a whole walk, on any driver, without a faulty server.
//
// UDML_ODBC_FAULT_AT=n      the n-th call (from 1) returns SQL_ERROR without reaching the driver
// UDML_ODBC_FAULT_STATE=S   its SQLSTATE (default HY000), reported by SQLGetDiagRecW
// UDML_ODBC_FAULT_LOG=FILE  receives "calls N" at exit, and "failed N FUNCTION" at the fault
#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace {

std::atomic<long> g_calls{0};
std::mutex g_mutex;
SQLHANDLE g_faulted = SQL_NULL_HANDLE; // the handle whose diagnostics report the injected fault
std::string g_failedCall;

long FaultAt() {
    static const long at = [] {
        const char* text = std::getenv("UDML_ODBC_FAULT_AT");
        return text != nullptr ? std::atol(text) : 0L;
    }();
    return at;
}

void Log(const std::string& line) {
    const char* path = std::getenv("UDML_ODBC_FAULT_LOG");
    if (path == nullptr)
        return;
    if (std::FILE* file = std::fopen(path, "a")) {
        std::fputs((line + "\n").c_str(), file);
        std::fclose(file);
    }
}

struct ReportAtExit {
    ~ReportAtExit() { Log("calls " + std::to_string(g_calls.load())); }
} g_report;

// Counts the call; true when it is the one to fail, whose diagnostics then belong to `handle`.
bool Fails(const char* function, SQLHANDLE handle) {
    const long call = ++g_calls;
    if (call != FaultAt())
        return false;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_faulted = handle;
    g_failedCall = function;
    Log("failed " + std::to_string(call) + " " + function);
    return true;
}

template <typename Function> Function Next(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

// Each entry point counts, fails when its turn comes, and otherwise calls the driver manager's.
#define FORWARD(name, handle, ...)                                                                           \
    if (Fails(#name, handle))                                                                                \
        return SQL_ERROR;                                                                                    \
    static const auto next = Next(&name, #name);                                                             \
    return next(__VA_ARGS__);

extern "C" {

SQLRETURN SQL_API SQLAllocHandle(SQLSMALLINT type, SQLHANDLE parent, SQLHANDLE* result){
    FORWARD(SQLAllocHandle, parent, type, parent, result)} SQLRETURN SQL_API
    SQLSetEnvAttr(SQLHENV env, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER length){
        FORWARD(SQLSetEnvAttr, env, env, attribute, value, length)} SQLRETURN SQL_API
    SQLSetConnectAttrW(SQLHDBC dbc, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER length){
        FORWARD(SQLSetConnectAttrW, dbc, dbc, attribute, value, length)} SQLRETURN SQL_API
    SQLSetStmtAttr(SQLHSTMT stmt, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER length){
        FORWARD(SQLSetStmtAttr, stmt, stmt, attribute, value, length)} SQLRETURN SQL_API
    SQLDriverConnectW(SQLHDBC dbc, SQLHWND window, SQLWCHAR* in, SQLSMALLINT inLength, SQLWCHAR* out,
                      SQLSMALLINT outMax, SQLSMALLINT* outLength,
                      SQLUSMALLINT completion){FORWARD(SQLDriverConnectW, dbc, dbc, window, in, inLength, out,
                                                       outMax, outLength, completion)} SQLRETURN SQL_API
    SQLConnectW(SQLHDBC dbc, SQLWCHAR* dsn, SQLSMALLINT dsnLength, SQLWCHAR* user, SQLSMALLINT userLength,
                SQLWCHAR* password,
                SQLSMALLINT passwordLength){FORWARD(SQLConnectW, dbc, dbc, dsn, dsnLength, user, userLength,
                                                    password, passwordLength)} SQLRETURN SQL_API
    SQLGetInfoW(SQLHDBC dbc, SQLUSMALLINT type, SQLPOINTER value, SQLSMALLINT max, SQLSMALLINT* length){
        FORWARD(SQLGetInfoW, dbc, dbc, type, value, max, length)} SQLRETURN SQL_API
    SQLTablesW(SQLHSTMT stmt, SQLWCHAR* catalog, SQLSMALLINT catalogLength, SQLWCHAR* schema,
               SQLSMALLINT schemaLength, SQLWCHAR* table, SQLSMALLINT tableLength, SQLWCHAR* types,
               SQLSMALLINT typesLength){FORWARD(SQLTablesW, stmt, stmt, catalog, catalogLength, schema,
                                                schemaLength, table, tableLength, types,
                                                typesLength)} SQLRETURN SQL_API
    SQLColumnsW(SQLHSTMT stmt, SQLWCHAR* catalog, SQLSMALLINT catalogLength, SQLWCHAR* schema,
                SQLSMALLINT schemaLength, SQLWCHAR* table, SQLSMALLINT tableLength, SQLWCHAR* column,
                SQLSMALLINT columnLength){FORWARD(SQLColumnsW, stmt, stmt, catalog, catalogLength, schema,
                                                  schemaLength, table, tableLength, column,
                                                  columnLength)} SQLRETURN SQL_API
    SQLPrimaryKeysW(SQLHSTMT stmt, SQLWCHAR* catalog, SQLSMALLINT catalogLength, SQLWCHAR* schema,
                    SQLSMALLINT schemaLength, SQLWCHAR* table, SQLSMALLINT tableLength){
        FORWARD(SQLPrimaryKeysW, stmt, stmt, catalog, catalogLength, schema, schemaLength, table,
                tableLength)} SQLRETURN SQL_API
    SQLForeignKeysW(SQLHSTMT stmt, SQLWCHAR* pkCatalog, SQLSMALLINT pkCatalogLength, SQLWCHAR* pkSchema,
                    SQLSMALLINT pkSchemaLength, SQLWCHAR* pkTable, SQLSMALLINT pkTableLength,
                    SQLWCHAR* fkCatalog, SQLSMALLINT fkCatalogLength, SQLWCHAR* fkSchema,
                    SQLSMALLINT fkSchemaLength, SQLWCHAR* fkTable, SQLSMALLINT fkTableLength){
        FORWARD(SQLForeignKeysW, stmt, stmt, pkCatalog, pkCatalogLength, pkSchema, pkSchemaLength, pkTable,
                pkTableLength, fkCatalog, fkCatalogLength, fkSchema, fkSchemaLength, fkTable,
                fkTableLength)} SQLRETURN SQL_API
    SQLExecDirectW(SQLHSTMT stmt, SQLWCHAR* text,
                   SQLINTEGER length){FORWARD(SQLExecDirectW, stmt, stmt, text, length)} SQLRETURN SQL_API
    SQLNumResultCols(SQLHSTMT stmt,
                     SQLSMALLINT* count){FORWARD(SQLNumResultCols, stmt, stmt, count)} SQLRETURN SQL_API
    SQLFetch(SQLHSTMT stmt){FORWARD(SQLFetch, stmt, stmt)} SQLRETURN SQL_API
    SQLGetData(SQLHSTMT stmt, SQLUSMALLINT column, SQLSMALLINT type, SQLPOINTER value, SQLLEN max,
               SQLLEN* indicator){
        FORWARD(SQLGetData, stmt, stmt, column, type, value, max, indicator)} SQLRETURN SQL_API
    SQLFreeStmt(SQLHSTMT stmt,
                SQLUSMALLINT option){FORWARD(SQLFreeStmt, stmt, stmt, option)} SQLRETURN SQL_API
    SQLFreeHandle(SQLSMALLINT type,
                  SQLHANDLE handle){FORWARD(SQLFreeHandle, handle, type, handle)} SQLRETURN SQL_API
    SQLDisconnect(SQLHDBC dbc){FORWARD(SQLDisconnect, dbc, dbc)}

// The injected fault's diagnostics: one record with the chosen SQLSTATE; other handles are the
// driver manager's business.
SQLRETURN SQL_API SQLGetDiagRecW(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT record, SQLWCHAR* state,
                                 SQLINTEGER* native, SQLWCHAR* text, SQLSMALLINT max, SQLSMALLINT* length) {
    std::string message;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (handle == g_faulted && handle != SQL_NULL_HANDLE)
            message = "injected fault in " + g_failedCall;
    }
    if (message.empty()) {
        static const auto next = Next(&SQLGetDiagRecW, "SQLGetDiagRecW");
        return next(type, handle, record, state, native, text, max, length);
    }
    if (record != 1)
        return SQL_NO_DATA;
    const char* chosen = std::getenv("UDML_ODBC_FAULT_STATE");
    const std::string sqlstate = chosen != nullptr && std::strlen(chosen) == 5 ? chosen : "HY000";
    for (size_t i = 0; i < 6; ++i)
        state[i] = i < 5 ? static_cast<SQLWCHAR>(sqlstate[i]) : 0;
    if (native != nullptr)
        *native = 0;
    const size_t room = max > 0 ? static_cast<size_t>(max) - 1 : 0;
    const size_t shown = std::min(room, message.size());
    for (size_t i = 0; text != nullptr && i < shown; ++i)
        text[i] = static_cast<SQLWCHAR>(message[i]);
    if (text != nullptr && max > 0)
        text[shown] = 0;
    if (length != nullptr)
        *length = static_cast<SQLSMALLINT>(message.size());
    return shown < message.size() ? SQL_SUCCESS_WITH_INFO : SQL_SUCCESS;
}

} // extern "C"
