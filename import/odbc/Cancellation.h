// Process-wide controls of every ODBC statement this process runs: the timeouts, and cancellation
// from outside the call that the driver is blocked in.
#pragma once

#include <sql.h>

namespace odbc {

/// Login and query timeout, in seconds, of every connection and statement opened from now on;
/// 0 leaves queries without a limit and logins with the default of 15 seconds.
void SetTimeout(unsigned seconds);
unsigned Timeout();

/// Cancels (SQLCancel) every statement that exists now, on any connection and thread, and makes
/// every statement allocated later fail at once with SQLSTATE HY008. Safe from any thread but a
/// signal handler; the cancelled calls return with an error that their callers throw.
void CancelRunningStatements();

/// With a timeout set, makes it the default query timeout of `connection` and limits the server's
/// lock waits too: the drivers of PostgreSQL and MariaDB run their catalog functions as queries of
/// their own without the statement's query timeout, and a catalog query stalls behind a lock
/// (PostgreSQL: lock_timeout; MariaDB: max_statement_time and lock_wait_timeout).
void LimitServerTime(SQLHDBC connection);

/// Whether CancelRunningStatements was called.
bool Cancelled();

/// Makes `statement` one that CancelRunningStatements reaches, for as long as the registration
/// lives, and gives it the query timeout. Throws ErrorMessage (HY008) once cancellation began.
class CancellableStatement {
public:
    CancellableStatement() = default;
    CancellableStatement(const CancellableStatement&) = delete;
    CancellableStatement& operator=(const CancellableStatement&) = delete;
    ~CancellableStatement() { Release(); }

    void Register(SQLHSTMT statement);
    void Release() noexcept;

private:
    SQLHSTMT m_statement = SQL_NULL_HSTMT;
};

} // namespace odbc
