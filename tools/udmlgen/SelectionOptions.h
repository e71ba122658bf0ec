// The selection options of udmlgen: include and exclude patterns for catalogs, schemas and tables.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}
class MIMetaDataImport;
class ObjectSelection;

namespace udmlgen {

/// The patterns as the user typed them (UTF-8), each option repeatable.
struct SelectionPatterns {
    std::vector<std::string> includeCatalogs, excludeCatalogs;
    std::vector<std::string> includeSchemas, excludeSchemas;
    std::vector<std::string> includeTables, excludeTables;
};

/// Registers --include-catalog, --exclude-catalog, --include-schema, --exclude-schema,
/// --include-table and --exclude-table on `command`, filling `patterns`, and explains the pattern
/// syntax in its help. A malformed pattern is a parse error of the option.
void AddSelectionOptions(CLI::App& command, SelectionPatterns& patterns);

/// The selection the patterns make (they were checked when the options were read).
ObjectSelection SelectionOf(const SelectionPatterns& patterns);

/// `source` wrapped so that it shows only the selected objects; `source` itself when no pattern
/// was given, so that a run without selection reads the source exactly as before.
std::unique_ptr<MIMetaDataImport> ApplySelection(std::unique_ptr<MIMetaDataImport> source,
                                                 const SelectionPatterns& patterns);

} // namespace udmlgen
