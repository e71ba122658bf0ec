// The options of the udmlgen command and their parsing into a request.
#pragma once

#include "SelectionOptions.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace udmlgen {

/// What a run prints on standard error besides its errors.
enum class Verbosity { Quiet, Normal, Verbose };

/// What one invocation asks for, with every text as the user typed it (UTF-8).
struct Options {
    enum class Command { Generate, Snapshot, ListSources, Diff };
    Command command = Command::Generate;
    std::string connect;      // ODBC data source name or connection string
    std::string snapshotFile; // snapshot import source; "-" is standard input
    std::string user;
    std::string database;    // never empty once parsed: given, or the source's default
    int32_t requestType = 0; // repository type id of the request
    std::string catalog, schema, table, tableUri, column, foreignKey, baseTable;
    int depth = -1;
    int generateMask = 0xffff;
    uint8_t tableTypes = 1;
    bool numericAsDouble = false;
    std::vector<std::string> existingFiles;
    std::vector<std::pair<std::string, std::string>> joinWithinModule; // module, ";"-separated views
    bool viewLinks = false;
    bool allowMissing = false; // send requests for names the source does not hold
    bool onlyNew = false;      // write only the objects the --existing files do not hold
    bool jsonReport = false;   // diff: the report as JSON instead of text
    Verbosity verbosity = Verbosity::Normal;
    std::string outputFile;      // empty or "-": standard output
    SelectionPatterns selection; // the include and exclude patterns of the source's objects
    std::string timeoutText;     // --timeout as given
    unsigned timeoutSeconds = 0; // login and query timeout; 0: none
};

/// Thrown for a usage error; the message names the option, the value given and what is accepted.
struct UsageError {
    std::string message;
};

/// Parses the command line. Returns nothing when help or the version was printed (the caller
/// exits 0); throws UsageError for anything malformed.
std::optional<Options> ParseOptions(int argc, char** argv);

/// The statement-kind mask of a comma list of kinds ("catalog, table"); blanks around items and
/// empty items are ignored, so a list without any item is 0.
int ParseGenerateMask(const std::string& list);
/// A table-type selector: decimal digits, or 0x and hexadecimal digits; 0 to 255.
uint8_t ParseTableTypes(const std::string& text);
/// A depth limit: decimal digits with an optional leading "-"; -1 or more.
int ParseDepth(const std::string& text);
/// The repository database a run names when --database is not given: the snapshot file's name
/// without its extension, the data source name, or a connection string's DSN= value, else its
/// DATABASE= value. Empty when there is none.
std::string DefaultDatabase(const std::string& connect, const std::string& snapshotFile);

} // namespace udmlgen
