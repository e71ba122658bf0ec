// SQLite databases for the ODBC source's tests: the sample sales database, built once per test
// process, and small databases from SQL text, all reached through the SQLite3 ODBC driver.
#pragma once

#include "import/odbc/OdbcImport.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace sqlite_sample {

inline WyString Wide(const std::string& text) {
    return WyString(text.begin(), text.end());
}

// Each test process builds files of its own (ctest may run the tests side by side) and removes
// them when it ends.
inline std::string ProcessScratchPath(const std::string& name) {
    static struct Removal {
        std::vector<std::string> paths;
        ~Removal() {
            for (const std::string& path : paths)
                std::remove(path.c_str());
        }
    } removal;
    const std::string path = ScratchPath(std::to_string(getpid()) + "-" + name);
    std::remove(path.c_str());
    removal.paths.push_back(path);
    return path;
}

/// A new database `name` made by running `sql` through sqlite3; returns its path.
inline std::string Database(const std::string& name, const std::string& sql) {
    const std::string path = ProcessScratchPath(name);
    const std::string sqlPath = ProcessScratchPath(name + ".sql");
    std::ofstream(sqlPath) << sql;
    const CommandResult run = RunCommand("sqlite3 -bail " + ShellQuote(path) + " <" + ShellQuote(sqlPath));
    EXPECT_EQ(run.exitStatus, 0) << run.standardError;
    return path;
}

/// The connection string of the sample sales database (examples/sample/sales.sql).
inline const std::string& SampleConnection() {
    static const std::string connection = [] {
        const CommandResult run =
            RunCommand("bash " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/scripts/sample-db.sh") + " " +
                       ShellQuote(ProcessScratchPath("sales.db")));
        EXPECT_EQ(run.exitStatus, 0) << run.standardError;
        std::string text = run.standardOutput;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.pop_back();
        return text;
    }();
    return connection;
}

/// The sample's connection string aimed at another database file.
inline std::string ConnectionTo(const std::string& path) {
    const std::string& sample = SampleConnection();
    const size_t at = sample.find("Database=");
    EXPECT_NE(at, std::string::npos) << sample;
    return sample.substr(0, at) + "Database=" + path;
}

inline void Open(OdbcImport& source, const std::string& connection) {
    WyString text = Wide(connection), user, password;
    source.OpenConnection(text, user, password, false);
}

/// Every record of the listing just prepared; fails the test when the listing does not end.
template <typename Record> std::vector<Record> All(MIMetaDataImport& source) {
    std::vector<Record> records;
    for (Record record; source.Get(record);) {
        records.push_back(record);
        if (records.size() > 100000) {
            ADD_FAILURE() << "the listing does not end";
            break;
        }
    }
    return records;
}

} // namespace sqlite_sample
