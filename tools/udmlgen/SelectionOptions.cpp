// The selection options: registered on the command line with a check of each pattern, and turned
// into the selecting import source around whatever source the run opens.
#include "SelectionOptions.h"

#include "import/selection/SelectingImport.h"
#include "platform/BaseStringUtil.h"

#include <CLI/CLI.hpp>

namespace udmlgen {
namespace {

const char kSelectionHelp[] = R"(
Selection (each option repeatable, for the main command and for snapshot):
  Once an --include-KIND is given, only the objects of that kind that match one of its patterns are
  read; --exclude-KIND drops what it matches, even when an include matches it too. A schema left out
  leaves out its tables, a catalog its schemas. Foreign keys and view links to a table left out
  are left out with it. Table patterns do not drop catalogs or schemas.
  Patterns: * matches any characters, ? one character; letter case is ignored (sales matches SALES).
  Qualify with dots, outermost first: --include-schema CRM.sales, --exclude-table 'sales.tmp_*',
  --include-table 'CRM.sales.orders'. Inside double quotes a name stands for itself, case, dots and
  * included: --include-table '"Order.Lines"'. Quote patterns from the shell.
  Example: udmlgen --snapshot crm.json --include-schema 'sales*' --exclude-table '*_staging')";

WyString Wide(const std::string& text) {
    return BaseStringUtil::StringFrom(text.c_str(), SystemUtility::GetMultiByteCodePage());
}

// The messages of a failure, as one line of text.
std::string Describe(const ErrorMessage& error) {
    std::string text;
    for (const WyString& message : error.Messages())
        text += (text.empty() ? "" : ": ") +
                BaseStringUtil::StringToStdString(message, SystemUtility::GetMultiByteCodePage());
    return text;
}

struct OptionKind {
    const char* include;
    const char* exclude;
    const char* plural;
    ObjectSelection::Kind kind;
    std::vector<std::string> SelectionPatterns::*includes;
    std::vector<std::string> SelectionPatterns::*excludes;
};

const OptionKind kOptionKinds[] = {
    {"--include-catalog", "--exclude-catalog", "catalogs", ObjectSelection::kCatalog,
     &SelectionPatterns::includeCatalogs, &SelectionPatterns::excludeCatalogs},
    {"--include-schema", "--exclude-schema", "schemas", ObjectSelection::kSchema,
     &SelectionPatterns::includeSchemas, &SelectionPatterns::excludeSchemas},
    {"--include-table", "--exclude-table", "tables", ObjectSelection::kTable,
     &SelectionPatterns::includeTables, &SelectionPatterns::excludeTables},
};

const char* const kPatternForms[] = {"CATALOG", "[CATALOG.]SCHEMA", "[[CATALOG.]SCHEMA.]TABLE"};

} // namespace

void AddSelectionOptions(CLI::App& command, SelectionPatterns& patterns) {
    command.footer([] { return std::string(kSelectionHelp); });
    for (const OptionKind& kind : kOptionKinds) {
        const ObjectSelection::Kind objectKind = kind.kind;
        const CLI::Validator check(
            [objectKind](std::string& text) {
                try {
                    ObjectSelection().Add(objectKind, true, Wide(text));
                    return std::string();
                } catch (const ErrorMessage& error) {
                    return Describe(error);
                }
            },
            "");
        const std::string what = kind.plural;
        for (const bool include : {true, false})
            command
                .add_option(include ? kind.include : kind.exclude,
                            patterns.*(include ? kind.includes : kind.excludes),
                            (include ? "read only the " : "leave out the ") + what +
                                " that match (repeatable)")
                ->type_name(kPatternForms[objectKind])
                ->check(check)
                ->allow_extra_args(false)
                ->group("Selection");
    }
}

ObjectSelection SelectionOf(const SelectionPatterns& patterns) {
    ObjectSelection selection;
    for (const OptionKind& kind : kOptionKinds) {
        for (const std::string& text : patterns.*kind.includes)
            selection.Add(kind.kind, true, Wide(text));
        for (const std::string& text : patterns.*kind.excludes)
            selection.Add(kind.kind, false, Wide(text));
    }
    return selection;
}

std::unique_ptr<MIMetaDataImport> ApplySelection(std::unique_ptr<MIMetaDataImport> source,
                                                 const SelectionPatterns& patterns) {
    ObjectSelection selection = SelectionOf(patterns);
    if (selection.SelectsAll())
        return source;
    return std::make_unique<SelectingImport>(std::move(source), std::move(selection));
}

} // namespace udmlgen
