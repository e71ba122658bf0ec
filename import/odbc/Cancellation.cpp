// The registry of live statements that a cancellation reaches.
#include "import/odbc/Cancellation.h"

#include "platform/ErrorMessage.h"

#include <sqlext.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>

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
