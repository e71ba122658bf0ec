// Command-line parsing of udmlgen with CLI11: every malformed option becomes a UsageError that
// names the option, so that the command exits with status 2 and a one-line message.
#include "Options.h"

#include "platform/repository/SMPTypeIDDatabase.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <map>

namespace udmlgen {
namespace {

const char kExamples[] = R"(
Examples:
  Describe a whole database reached through an ODBC data source name:
    UDMLGEN_PASSWORD=secret udmlgen --connect SalesDSN --user admin --database Sales > sales.udml
  Use a connection string, and only one schema, without foreign keys:
    udmlgen --connect "Driver=/usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so;Database=sales.db" \
            --database Sales --request schema --schema main --generate "schema,table,table-key"
  Capture a source once, then generate from the snapshot offline:
    udmlgen snapshot --connect SalesDSN -o sales.json
    udmlgen --snapshot sales.json --database Sales -o sales.udml
  Skip what the repository already holds, and add view-link joins of an application source:
    udmlgen --snapshot app.json --database AppDB --existing repo.udml --view-links

Exit status: 0 success, 1 generation or connection failure, 2 usage error, 130/143 interrupted.
The password is read from the environment variable UDMLGEN_PASSWORD, never from the command line.
)";

const std::map<std::string, int32_t> kRequestTypes = {
    {"database", kTIDADatabase},     {"catalog", kTIDACatalog}, {"schema", kTIDASchema},
    {"table", kTIDATable},           {"column", kTIDAColumn},   {"table-key", kTIDATableKey},
    {"foreign-key", kTIDAForeignKey}};

const std::map<std::string, int> kStatementKinds = {{"catalog", 0x0002},     {"schema", 0x0004},
                                                    {"table", 0x0008},       {"column", 0x0010},
                                                    {"foreign-key", 0x0020}, {"table-key", 0x0040}};

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return "";
    const size_t last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

void AddSourceOptions(CLI::App& command, Options& options) {
    command.add_option("--connect", options.connect, "ODBC data source name or connection string");
    command.add_option("--snapshot", options.snapshotFile, "snapshot file to read instead of a live source");
    command.add_option("--user", options.user, "user name (password from UDMLGEN_PASSWORD)");
    command.add_option("-o,--output", options.outputFile, "write there instead of standard output");
    AddSelectionOptions(command, options.selection);
}

} // namespace

int ParseGenerateMask(const std::string& list) {
    int mask = 0;
    if (Trim(list).empty())
        return 0;
    size_t start = 0;
    while (start <= list.size()) {
        const size_t comma = list.find(',', start);
        const std::string item =
            Trim(list.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        const auto kind = kStatementKinds.find(item);
        if (kind == kStatementKinds.end())
            throw UsageError{"--generate: unknown statement kind '" + item +
                             "' (expected catalog, schema, table, column, foreign-key or table-key)"};
        mask |= kind->second;
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return mask;
}

uint8_t ParseTableTypes(const std::string& text) {
    const std::string trimmed = Trim(text);
    const bool hex = trimmed.size() > 2 && trimmed[0] == '0' && (trimmed[1] == 'x' || trimmed[1] == 'X');
    const std::string digits = hex ? trimmed.substr(2) : trimmed;
    const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos || digits.size() > 8)
        throw UsageError{"--table-types: '" + text + "' is not a number (decimal or 0x-hexadecimal)"};
    const unsigned long value = std::strtoul(digits.c_str(), nullptr, hex ? 16 : 10);
    if (value > 255)
        throw UsageError{"--table-types: " + text + " is out of range (0 to 255)"};
    return static_cast<uint8_t>(value);
}

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    CLI::App app{
        "Writes the UDML that declares a data source's catalog metadata in the repository's physical "
        "layer.",
        "udmlgen"};
    app.footer(kExamples);
    app.require_subcommand(0, 1);
    AddSourceOptions(app, options);

    std::string request = "database";
    std::string generate;
    std::string tableTypes;
    std::vector<std::string> joinWithinModule;
    app.add_option("--database", options.database,
                   "repository database: the first part of every name (default: the source's name)");
    app.add_option("--request", request, "database, catalog, schema, table, column, table-key or foreign-key")
        ->capture_default_str();
    app.add_option("--catalog", options.catalog, "catalog of the request");
    app.add_option("--schema", options.schema, "schema of the request");
    app.add_option("--table", options.table, "table of the request");
    app.add_option("--table-uri", options.tableUri, "URI written for the table of a table request");
    app.add_option("--column", options.column, "column of a column request");
    app.add_option("--foreign-key", options.foreignKey, "name of the foreign keys of a foreign-key request");
    app.add_option("--base-table", options.baseTable, "table whose metadata the requested table stands for");
    app.add_option("--depth", options.depth, "depth limit, -1 for none")->capture_default_str();
    app.add_option("--generate", generate,
                   "comma list of catalog, schema, table, column, foreign-key, table-key (default: all)");
    app.add_option("--table-types", tableTypes,
                   "table-type selector, 0 to 255 (default 1: tables and views)");
    app.add_flag("--numeric-as-double", options.numericAsDouble, "type exact numerics as DOUBLE");
    app.add_option("--existing", options.existingFiles, "UDML already in the repository (repeatable)");
    app.add_option("--join-within-module", joinWithinModule,
                   "MODULE=VIEW;VIEW...: restrict those view objects to joins within MODULE (repeatable)");
    app.add_flag("--view-links", options.viewLinks,
                 "write the joins of the source's view links after the request");

    CLI::App* snapshot = app.add_subcommand("snapshot", "capture a live source as a snapshot file");
    AddSourceOptions(*snapshot, options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::CallForAllHelp&) {
        std::cout << app.help("", CLI::AppFormatMode::All);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw UsageError{error.what()};
    }

    options.captureSnapshot = snapshot->parsed();
    if (options.connect.empty() == options.snapshotFile.empty())
        throw UsageError{"give exactly one source: --connect SOURCE or --snapshot FILE"};
    if (options.captureSnapshot)
        return options;

    const auto type = kRequestTypes.find(request);
    if (type == kRequestTypes.end())
        throw UsageError{"--request: unknown kind '" + request +
                         "' (expected database, catalog, schema, table, column, table-key or foreign-key)"};
    options.requestType = type->second;
    if (app.count("--generate"))
        options.generateMask = ParseGenerateMask(generate);
    if (app.count("--table-types"))
        options.tableTypes = ParseTableTypes(tableTypes);
    for (const std::string& restriction : joinWithinModule) {
        const size_t equals = restriction.find('=');
        if (equals == std::string::npos || equals == 0)
            throw UsageError{"--join-within-module: '" + restriction + "' is not MODULE=VIEW;VIEW..."};
        options.joinWithinModule.emplace_back(restriction.substr(0, equals), restriction.substr(equals + 1));
    }
    if (options.depth < -1)
        throw UsageError{"--depth: " + std::to_string(options.depth) + " is below -1"};
    return options;
}

} // namespace udmlgen
