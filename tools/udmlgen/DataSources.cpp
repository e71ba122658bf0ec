// Asks the driver manager directly (SQLDataSources, SQLDrivers): no connection is made.
#include "DataSources.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <string>

namespace udmlgen {
namespace {

// The drivers whose output the tests compare: psqlODBC, the MariaDB driver, SQLite3's.
bool Tested(std::string driver) {
    std::transform(driver.begin(), driver.end(), driver.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const char* known : {"postgres", "psqlodbc", "mariadb", "maodbc", "sqlite3"})
        if (driver.find(known) != std::string::npos)
            return true;
    return false;
}

std::string Mark(const std::string& driver) {
    return Tested(driver) ? "  (tested with udmlgen)" : "";
}

std::string Text(const SQLCHAR* text) {
    return reinterpret_cast<const char*>(text);
}

} // namespace

int ListDataSources() {
    SQLHENV environment = SQL_NULL_HENV;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment))) {
        std::cerr << "udmlgen: the ODBC driver manager could not be started\n";
        return 1;
    }
    SQLSetEnvAttr(environment, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);

    SQLCHAR name[512];
    SQLCHAR detail[2048];
    SQLSMALLINT nameLength = 0;
    SQLSMALLINT detailLength = 0;
    std::cout << "Data sources:\n";
    size_t count = 0;
    for (SQLUSMALLINT direction = SQL_FETCH_FIRST; SQL_SUCCEEDED(SQLDataSources(
             environment, direction, name, sizeof name, &nameLength, detail, sizeof detail, &detailLength));
         direction = SQL_FETCH_NEXT, ++count)
        std::cout << "  " << Text(name) << "  driver: " << Text(detail) << Mark(Text(detail)) << "\n";
    if (count == 0)
        std::cout << "  (none; define them in ~/.odbc.ini or /etc/odbc.ini, or connect with a connection "
                     "string)\n";

    std::cout << "Drivers:\n";
    count = 0;
    for (SQLUSMALLINT direction = SQL_FETCH_FIRST; SQL_SUCCEEDED(SQLDrivers(
             environment, direction, name, sizeof name, &nameLength, detail, sizeof detail, &detailLength));
         direction = SQL_FETCH_NEXT, ++count)
        std::cout << "  " << Text(name) << Mark(Text(name)) << "\n";
    if (count == 0)
        std::cout << "  (none; Debian packages: odbc-postgresql, odbc-mariadb, libsqliteodbc)\n";
    SQLFreeHandle(SQL_HANDLE_ENV, environment);
    return 0;
}

} // namespace udmlgen
