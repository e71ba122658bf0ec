// The settings of the throwaway database servers, as `scripts/db-servers.sh env` prints them.
#pragma once

#include "tests/support/RunCommand.h"

#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

namespace server_settings {

inline std::map<std::string, std::string> ServerSettings() {
    static std::map<std::string, std::string> settings;
    if (!settings.empty())
        return settings;
    const CommandResult run =
        RunCommand("bash " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/scripts/db-servers.sh") + " env");
    if (run.exitStatus != 0)
        throw std::runtime_error("db-servers.sh env failed: " + run.standardError);
    std::istringstream lines(run.standardOutput);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos || line.size() < equals + 3 || line[equals + 1] != '\'' ||
            line.back() != '\'')
            throw std::runtime_error("db-servers.sh env printed an unexpected line: " + line);
        std::string value = line.substr(equals + 2, line.size() - equals - 3);
        for (size_t at = 0; (at = value.find("'\\''", at)) != std::string::npos; ++at)
            value.replace(at, 4, "'");
        settings[line.substr(0, equals)] = value;
    }
    return settings;
}

inline std::string Setting(const std::string& key) {
    const auto settings = ServerSettings();
    const auto found = settings.find(key);
    if (found == settings.end())
        throw std::runtime_error("db-servers.sh env does not print " + key);
    return found->second;
}

/// Runs the SQL file `path` as the test account on PostgreSQL (`prefix` "UDML_PG_") or MariaDB
/// ("UDML_MARIADB_"); a failure throws with the client's words.
inline void RunSqlFile(const std::string& prefix, const std::string& path) {
    const std::string password = ShellQuote(Setting("UDML_DB_PASSWORD")),
                      user = ShellQuote(Setting("UDML_DB_USER"));
    const std::string host = ShellQuote(Setting(prefix + "HOST")),
                      port = ShellQuote(Setting(prefix + "PORT"));
    const CommandResult run =
        RunCommand(prefix == "UDML_PG_"
                       ? "PGPASSWORD=" + password + " psql -X -q -v ON_ERROR_STOP=1 -h " + host + " -p " +
                             port + " -U " + user + " -d " + ShellQuote(Setting("UDML_PG_DATABASE")) +
                             " -f " + ShellQuote(path) + " >/dev/null"
                       : "MYSQL_PWD=" + password + " mariadb --no-defaults --protocol=TCP -h " + host +
                             " -P " + port + " -u " + user + " <" + ShellQuote(path));
    if (run.exitStatus != 0)
        throw std::runtime_error(
            "running " + path +
            " failed (are the servers running? scripts/db-servers.sh start): " + run.standardError);
}

} // namespace server_settings
