// Accounts whose user names and passwords hold the characters that connection strings give a
// meaning to (blank, ";", "=", braces, quotes) or that are not ASCII must log in, through a
// connection string and through a data source name, on PostgreSQL and MariaDB; where a driver
// cannot carry a character, the run says so instead of logging in as someone else.
#include "tests/servers/ServerSettings.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using server_settings::Setting;

struct Account {
    std::string user, password;
};

const Account kAccounts[] = {
    {"cred blank", "pass blank"}, {"cred;semi", "pass;semi"},   {"cred=eq", "pass=eq"},
    {"cred{open", "pass{open"},   {"cred}close", "pass}close"}, {"{cred}", "{pass}}"},
    {"cred'q\"dq", "pass'q\"dq"}, {"credé中", "passß中"},
};

std::string SqlText(const std::string& text, char quote) {
    std::string quoted(1, quote);
    for (char c : text)
        quoted += c == quote ? std::string(2, c) : std::string(1, c);
    return quoted + quote;
}

std::string Admin(const std::string& command, const std::string& sql) {
    const std::string file = ScratchPath("credentials.sql");
    std::ofstream(file) << sql;
    const CommandResult run =
        RunCommand("bash " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/scripts/db-servers.sh") + " " +
                   command + " < " + ShellQuote(file));
    return run.exitStatus == 0 ? "" : run.standardError;
}

CommandResult Login(const Account& account, const std::string& connect, const std::string& odbcIni) {
    return RunCommand("ODBCINI=" + ShellQuote(odbcIni) + " UDMLGEN_PASSWORD=" + ShellQuote(account.password) +
                      " " + ShellQuote(UdmlgenPath()) + " --connect " + ShellQuote(connect) + " --user " +
                      ShellQuote(account.user) + " --request catalog --database D");
}

TEST(Credentials, EveryAccountLogsInThroughAConnectionStringAndADataSourceName) {
    std::string postgres, mariadb;
    for (const Account& account : kAccounts) {
        postgres += "DROP ROLE IF EXISTS " + SqlText(account.user, '"') + "; CREATE ROLE " +
                    SqlText(account.user, '"') + " LOGIN PASSWORD " + SqlText(account.password, '\'') + ";\n";
        const std::string who = SqlText(account.user, '\'') + "@'127.0.0.1'";
        mariadb += "DROP USER IF EXISTS " + who + "; CREATE USER " + who + " IDENTIFIED BY " +
                   SqlText(account.password, '\'') + ";\n";
    }
    ASSERT_EQ("", Admin("pg-admin", "SET client_min_messages = warning;\n" + postgres));
    ASSERT_EQ("", Admin("mariadb-admin", mariadb));

    const std::string odbcIni = ScratchPath("credentials-odbc.ini");
    std::ofstream(odbcIni)
        << "[CredPostgres]\nDriver=/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so\nServername="
        << Setting("UDML_PG_HOST") << "\nPort=" << Setting("UDML_PG_PORT")
        << "\nDatabase=" << Setting("UDML_PG_DATABASE")
        << "\n[CredMariaDb]\nDriver=/usr/lib/x86_64-linux-gnu/odbc/libmaodbc.so\nServer="
        << Setting("UDML_MARIADB_HOST") << "\nPort=" << Setting("UDML_MARIADB_PORT") << "\n";

    for (const Account& account : kAccounts) {
        for (const std::string& connect : {Setting("UDML_PG_CONNECT"), std::string("CredPostgres"),
                                           Setting("UDML_MARIADB_CONNECT"), std::string("CredMariaDb")}) {
            SCOPED_TRACE(account.user + " through " + connect);
            const CommandResult run = Login(account, connect, odbcIni);
            EXPECT_EQ(std::string::npos, (run.standardOutput + run.standardError).find(account.password));
            // psqlODBC reads UID up to the next ";" and keeps braces: those names need a DSN.
            const bool psqlCannot = connect == Setting("UDML_PG_CONNECT") &&
                                    (account.user.find(';') != std::string::npos || account.user[0] == '{');
            if (psqlCannot) {
                EXPECT_EQ(1, run.exitStatus);
                EXPECT_NE(std::string::npos, run.standardError.find("which psqlODBC cannot take"))
                    << run.standardError;
            } else {
                EXPECT_EQ(0, run.exitStatus) << run.standardError;
            }
        }
    }
}

} // namespace
