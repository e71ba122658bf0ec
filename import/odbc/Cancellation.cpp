// The registry of live statements that a cancellation reaches.
#include "import/odbc/Cancellation.h"

#include "import/odbc/OdbcCalls.h"
#include "platform/ErrorMessage.h"

#include <sqlext.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>

namespace odbc {
namespace {

std::atomic<unsigned> g_timeout{0};
std::atomic<bool> g_cancelled{false};
// Held while a statement is cancelled, so that its owner cannot free it under SQLCancel.
std::mutex g_mutex;
std::set<SQLHSTMT>& Statements() {
    static std::set<SQLHSTMT> statements;
    return statements;
}

} // namespace

void SetTimeout(unsigned seconds) {
    g_timeout.store(seconds);
}

unsigned Timeout() {
    return g_timeout.load();
}

void LimitServerTime(SQLHDBC connection) {
    const unsigned seconds = g_timeout.load();
    if (seconds == 0)
        return;
    // The connection's default for its statements. psqlODBC (13) still runs the queries behind its
    // catalog functions with statement_timeout 0, so on PostgreSQL a lock wait, the usual stall of
    // a catalog query, is limited by lock_timeout, which the driver leaves alone.
    SQLSetConnectAttr(connection, SQL_ATTR_QUERY_TIMEOUT,
                      reinterpret_cast<SQLPOINTER>(static_cast<uintptr_t>(seconds)), 0);
    SQLWCHAR name[64] = {};
    SQLSMALLINT length = 0;
    if (!SQL_SUCCEEDED(SQLGetInfoW(connection, SQL_DBMS_NAME, name, sizeof name, &length)))
        return;
    const WyString dbms = FromSql(
        name, std::min<size_t>(static_cast<size_t>(std::max<SQLSMALLINT>(length, 0)) / sizeof(SQLWCHAR),
                               sizeof name / sizeof name[0] - 1));
    const std::wstring number = std::to_wstring(seconds);
    WyString sql;
    if (dbms == L"PostgreSQL")
        sql = L"SET lock_timeout = " + number + L"000";
    else if (dbms == L"MariaDB")
        sql = L"SET SESSION max_statement_time = " + number + L", SESSION lock_wait_timeout = " + number;
    if (!sql.empty())
        RunQuery(connection, sql, L"setting the timeout of " + dbms, [](Row&) {});
}

bool Cancelled() {
    return g_cancelled.load();
}

void CancelRunningStatements() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_cancelled.store(true);
    for (SQLHSTMT statement : Statements())
        SQLCancel(statement);
}

void CancellableStatement::Register(SQLHSTMT statement) {
    Release();
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (!g_cancelled.load()) {
            Statements().insert(statement);
            m_statement = statement;
        }
    }
    if (m_statement == SQL_NULL_HSTMT)
        throw ErrorMessage(L"HY008 [0] the run was interrupted; no further statement is started");
    if (const unsigned seconds = g_timeout.load()) {
        // A driver that cannot time out queries refuses the attribute; Ctrl-C still cancels them.
        SQLSetStmtAttr(statement, SQL_ATTR_QUERY_TIMEOUT,
                       reinterpret_cast<SQLPOINTER>(static_cast<uintptr_t>(seconds)), 0);
    }
}

void CancellableStatement::Release() noexcept {
    if (m_statement == SQL_NULL_HSTMT)
        return;
    std::lock_guard<std::mutex> lock(g_mutex);
    Statements().erase(m_statement);
    m_statement = SQL_NULL_HSTMT;
}

} // namespace odbc
