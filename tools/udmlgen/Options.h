// The options of the udmlgen command and their parsing into a request.
#pragma once

#include "SelectionOptions.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace udmlgen {

/// What one invocation asks for, with every text as the user typed it (UTF-8).
struct Options {
    bool captureSnapshot = false; // the snapshot subcommand
    std::string connect;          // ODBC data source name or connection string
    std::string snapshotFile;     // snapshot import source
    std::string user;
    std::string database;
    int32_t requestType = 0; // repository type id of the request
    std::string catalog, schema, table, tableUri, column, foreignKey, baseTable;
    int depth = -1;
    int generateMask = 0xffff;
    uint8_t tableTypes = 1;
    bool numericAsDouble = false;
    std::vector<std::string> existingFiles;
    std::vector<std::pair<std::string, std::string>> joinWithinModule; // module, ";"-separated views
    bool viewLinks = false;
    std::string outputFile; // empty: standard output
    SelectionPatterns selection;
};

/// Thrown for a usage error; the message says what is wrong with which option.
struct UsageError {
    std::string message;
};

/// Parses the command line. Returns nothing when help was printed (the caller exits 0); throws
/// UsageError for anything malformed.
std::optional<Options> ParseOptions(int argc, char** argv);

/// The statement-kind mask of a comma list of kinds ("catalog, table"); an empty list is 0.
int ParseGenerateMask(const std::string& list);
/// A table-type selector in decimal or 0x-hexadecimal, 0 to 255.
uint8_t ParseTableTypes(const std::string& text);

} // namespace udmlgen
