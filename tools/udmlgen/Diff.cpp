// The diff walks the source exactly as a generation does, into a repository that holds only the
// database, so that every object in scope is written; each statement is read back and compared
// with the --existing files as soon as it is complete. Only the differences and the names of the
// repository's objects that were met are kept, so memory follows the repository, not the source.
#include "Diff.h"

#include "Existence.h"
#include "Interrupt.h"
#include "Log.h"
#include "Output.h"
#include "Run.h"
#include "SelectionOptions.h"
#include "Source.h"
#include "Statements.h"

#include "SMUOdbcGenerator.h"
#include "import/selection/ObjectSelection.h"
#include "platform/repository/UdmlReader.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <set>
#include <unordered_set>

namespace udmlgen {
namespace {

constexpr int kExitFailure = 1;

WyString Wide(const std::string& text) {
    return BaseStringUtil::StringFrom(text.c_str(), SystemUtility::GetMultiByteCodePage());
}

enum class Change { Added, Removed, Changed };

struct Difference {
    std::string schema; // the schema's (or the catalog's) name as UDML writes it: the report's groups
    std::string table;  // the table's name, empty for a schema or catalog
    Change change;
    std::string kind; // catalog, schema, table, column, table key, foreign key
    std::string name;
    std::string piece; // what changed, with its old and new value
    std::string oldValue, newValue;
};

const char* KindName(TypeID type) {
    switch (type) {
    case kTIDACatalog:
        return "catalog";
    case kTIDASchema:
        return "schema";
    case kTIDATable:
        return "table";
    case kTIDAColumn:
        return "column";
    case kTIDATableKey:
        return "table key";
    case kTIDAForeignKey:
        return "foreign key";
    default:
        return "object";
    }
}

// The --generate bit of each kind, so that a kind left out is neither added nor removed.
int KindBit(TypeID type) {
    switch (type) {
    case kTIDACatalog:
        return 0x0002;
    case kTIDASchema:
        return 0x0004;
    case kTIDATable:
        return 0x0008;
    case kTIDAColumn:
        return 0x0010;
    case kTIDAForeignKey:
        return 0x0020;
    case kTIDATableKey:
        return 0x0040;
    default:
        return 0;
    }
}

// The pieces compared for each kind; the others (an external name, a URI) are the source's
// naming, not its content.
std::vector<const char*> ComparedPieces(TypeID type) {
    switch (type) {
    case kTIDAColumn:
        return {"type", "precision", "scale", "nullable", "description", "properties"};
    case kTIDATable:
        return {"description", "properties"};
    case kTIDATableKey:
        return {"columns"};
    case kTIDAForeignKey:
        return {"columns", "references"};
    default:
        return {};
    }
}

QualifiedName Prefix(const QualifiedName& name, size_t parts) {
    return QualifiedName(name.begin(),
                         name.begin() + static_cast<std::ptrdiff_t>(std::min(parts, name.size())));
}

// A JSON string. The texts are our own conversions to UTF-8, so the replacement of ill-formed
// bytes is only a guard.
std::string Json(const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

class Comparison {
public:
    Comparison(const UdmlContent& repository, const Options& options)
        : m_repository(repository), m_options(options), m_selection(SelectionOf(options.selection)) {}

    void Take(Statement& statement) {
        if (!statement.readable || statement.objects.empty())
            return;
        const ARpObject& own = *statement.objects.front();
        const TypeID type = own.GetTypeId();
        const QualifiedName& name = own.GetQualifiedName();
        if (type == kTIDATableKey || type == kTIDAForeignKey) {
            if (!(m_lastTableAdded && Prefix(name, name.size() - 1) == m_lastTable))
                Hold(type, name, statement.content);
            return; // else part of a table reported as added
        }
        ComparePending();
        if (type == kTIDATable) {
            m_lastTable = name;
            m_lastTableAdded = m_repository.Find(type, name) == nullptr;
            bool listed = true;
            for (const std::string& piece : statement.pieces)
                listed = listed && piece != " NO INTERSECTION";
            if (listed && !m_lastTableAdded)
                m_listedTables.insert(name);
        }
        for (const ARpObject* object : statement.objects) {
            const bool whole = object == statement.objects.front();
            if (!whole && (type != kTIDATable || m_lastTableAdded))
                break; // the columns of an added table are part of it
            Compare(object->GetTypeId(), object->GetQualifiedName(),
                    statement.content.Find(object->GetTypeId(), object->GetQualifiedName()));
        }
    }

    /// Compares what is still held; call when the walk ends.
    void ComparePending() {
        for (const auto& [key, fields] : m_pending)
            Compare(key.first, key.second, &fields);
        m_pending.clear();
    }

    /// The repository's objects under the request that the walk did not meet.
    void FindRemoved() {
        const QualifiedName scope = Scope();
        if (scope.empty())
            return; // a column, key or foreign-key request meets too little to tell
        // In name order, so that the report is the same from run to run, and a schema comes
        // before its tables.
        std::vector<const UdmlContent::Key*> keys;
        for (const auto& object : m_repository.Objects()) {
            if (m_seen.count(&object) == 0)
                keys.push_back(&object.first);
        }
        std::sort(keys.begin(), keys.end(), [](const UdmlContent::Key* a, const UdmlContent::Key* b) {
            return a->second != b->second ? a->second < b->second : a->first < b->first;
        });
        for (const UdmlContent::Key* key : keys) {
            const auto& [type, name] = *key;
            if (KindBit(type) == 0 || (m_options.generateMask & KindBit(type)) == 0 ||
                name.size() < scope.size() || !std::equal(scope.begin(), scope.end(), name.begin()))
                continue;
            if (!Selected(type, name))
                continue;
            if (type == kTIDAColumn || type == kTIDATableKey || type == kTIDAForeignKey) {
                // Only in a table met with its columns: otherwise the table went, or the walk
                // did not reach that far.
                if (m_listedTables.count(Prefix(name, 4)) == 0)
                    continue;
            } else if (type == kTIDATable && m_removedSchemas.count(Prefix(name, 3)) != 0) {
                continue; // reported with its schema
            }
            if (type == kTIDASchema)
                m_removedSchemas.insert(name);
            Add(Change::Removed, type, name);
        }
    }

    std::vector<Difference>& Differences() { return m_differences; }

private:
    QualifiedName Scope() const {
        const WyString database = Wide(m_options.database);
        switch (m_options.requestType) {
        case kTIDADatabase:
            return {database};
        case kTIDACatalog:
            return {database, Wide(m_options.catalog)};
        case kTIDASchema:
            return {database, Wide(m_options.catalog), Wide(m_options.schema)};
        case kTIDATable:
            return {database, Wide(m_options.catalog), Wide(m_options.schema), Wide(m_options.table)};
        default:
            return {};
        }
    }

    // A table's keys and foreign keys are compared once the table is done: the generator may
    // write one name twice (a key whose rows come apart), and as the repository keeps the last
    // declaration, so does the comparison.
    void Hold(TypeID type, const QualifiedName& name, const UdmlContent& content) {
        const UdmlFields* fields = content.Find(type, name);
        for (auto& [key, held] : m_pending) {
            if (key.first == type && key.second == name) {
                for (const auto& [piece, value] : fields ? *fields : UdmlFields())
                    held[piece] = value;
                return;
            }
        }
        m_pending.emplace_back(UdmlContent::Key{type, name}, fields ? *fields : UdmlFields());
    }

    void Compare(TypeID type, const QualifiedName& name, const UdmlFields* now) {
        const auto entry = m_repository.Objects().find({type, name});
        if (entry == m_repository.Objects().end()) {
            Add(Change::Added, type, name);
            return;
        }
        m_seen.insert(&*entry);
        const UdmlFields* old = &entry->second;
        for (const char* piece : ComparedPieces(type)) {
            auto value = [piece](const UdmlFields* fields) {
                const auto found = fields ? fields->find(piece) : UdmlFields::const_iterator();
                return fields && found != fields->end() ? found->second : std::string();
            };
            const std::string before = value(old), after = value(now);
            if (before != after)
                Add(Change::Changed, type, name, piece, before, after);
        }
    }

    void Add(Change change, TypeID type, const QualifiedName& name, const std::string& piece = "",
             const std::string& before = "", const std::string& after = "") {
        Difference difference;
        const bool inTable = type == kTIDAColumn || type == kTIDATableKey || type == kTIDAForeignKey;
        difference.schema = UdmlContent::QualifiedText(Prefix(name, type == kTIDACatalog ? 2 : 3));
        if (inTable || type == kTIDATable)
            difference.table = UdmlContent::QualifiedText(Prefix(name, 4));
        difference.change = change;
        difference.kind = KindName(type);
        difference.name = UdmlContent::QualifiedText(name);
        difference.piece = piece;
        difference.oldValue = before;
        difference.newValue = after;
        m_differences.push_back(std::move(difference));
    }

    // Whether the selection options let the source show the object: one they leave out is not
    // removed, only out of sight.
    bool Selected(TypeID type, const QualifiedName& name) const {
        if (name.size() < 2)
            return true;
        if (type == kTIDACatalog)
            return m_selection.CatalogSelected(name[1]);
        if (name.size() < 3)
            return true;
        if (type == kTIDASchema)
            return m_selection.SchemaSelected(name[1], name[2]);
        return name.size() < 4 || m_selection.TableSelected(name[1], name[2], name[3]);
    }

    const UdmlContent& m_repository;
    const Options& m_options;
    ObjectSelection m_selection;
    std::vector<Difference> m_differences;
    std::unordered_set<const UdmlContent::Map::value_type*> m_seen; // repository objects the walk met
    std::set<QualifiedName> m_listedTables;   // repository tables met with their columns and keys
    std::set<QualifiedName> m_removedSchemas; // reported whole, without their tables
    QualifiedName m_lastTable;
    bool m_lastTableAdded = false;
    std::vector<std::pair<UdmlContent::Key, UdmlFields>> m_pending; // the last table's keys, not yet compared
};

const char* ChangeName(Change change) {
    return change == Change::Added ? "added" : change == Change::Removed ? "removed" : "changed";
}

// Names of other objects stand as UDML writes them; other values are quoted, so that an empty
// description or trailing blanks show.
std::string Shown(const std::string& piece, const std::string& value) {
    return piece == "columns" || piece == "references" ? "(" + value + ")" : Json(value);
}

std::string TextReport(const std::vector<Difference>& differences) {
    std::string out;
    const std::string* schema = nullptr;
    const std::string* table = nullptr; // the table whose heading was written last
    size_t counts[3] = {0, 0, 0};
    for (const Difference& d : differences) {
        ++counts[static_cast<int>(d.change)];
        if (!schema || *schema != d.schema) {
            out += d.schema + "\n";
            schema = &d.schema;
            table = nullptr;
        }
        const bool tableLevel = d.table.empty() || d.kind == "table";
        if (!tableLevel && (!table || *table != d.table))
            out += "  " + d.table + "\n";
        if (!d.table.empty())
            table = &d.table;
        out += (tableLevel ? "  " : "    ") + std::string(ChangeName(d.change)) + " " + d.kind + " " + d.name;
        if (d.change == Change::Changed)
            out += " " + d.piece + ": " + Shown(d.piece, d.oldValue) + " -> " + Shown(d.piece, d.newValue);
        out += "\n";
    }
    out += std::to_string(differences.size()) + " differences: " + std::to_string(counts[0]) + " added, " +
           std::to_string(counts[1]) + " removed, " + std::to_string(counts[2]) + " changed\n";
    return out;
}

std::string JsonReport(const Options& options, const std::vector<Difference>& differences) {
    std::string out = "{\n  \"database\": " + Json(options.database) + ",\n  \"differences\": [";
    for (size_t i = 0; i < differences.size(); ++i) {
        const Difference& d = differences[i];
        out += std::string(i ? "," : "") + "\n    {\"change\": " + Json(ChangeName(d.change)) +
               ", \"kind\": " + Json(d.kind) + ", \"name\": " + Json(d.name) +
               ", \"schema\": " + Json(d.schema);
        if (!d.table.empty())
            out += ", \"table\": " + Json(d.table);
        if (d.change == Change::Changed)
            out += ", \"piece\": " + Json(d.piece) + ", \"old\": " + Json(d.oldValue) +
                   ", \"new\": " + Json(d.newValue);
        out += "}";
    }
    return out + (differences.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

// Groups by schema, then table, keeping the walk's order inside each (removed ones come last).
void Group(std::vector<Difference>& differences) {
    std::stable_sort(differences.begin(), differences.end(), [](const Difference& a, const Difference& b) {
        if (a.schema != b.schema)
            return a.schema < b.schema;
        return a.table < b.table;
    });
}

} // namespace

int Diff(const Options& options) {
    Log log(options.verbosity);
    std::vector<std::pair<std::string, std::string>> inputs;
    if (!options.snapshotFile.empty())
        inputs.emplace_back("--snapshot", options.snapshotFile);
    for (const std::string& file : options.existingFiles)
        inputs.emplace_back("--existing", file);
    RefuseToReplaceInputs(options.outputFile, inputs);

    UdmlContent content;
    for (const std::string& file : options.existingFiles)
        UdmlReader::ReadContent(file, content);
    log.Phase("read the --existing files");
    Source source = OpenSource(options);
    log.Phase("opened the source: " + source.description);
    if (!options.allowMissing)
        CheckRequestedObjectsExist(*source.import, options);
    SUSystemConfig::GetSystemConfig().SetNumericAsDouble(options.numericAsDouble);

    // The generator asks this repository whether a catalog or schema exists: holding only the
    // database, it writes every one, so each can be compared.
    ARpGateway walked;
    walked.DeclareDatabase(Wide(options.database));
    CUdmlGenerator generator(&walked, source.import.get(), Wide(options.connect), Wide(options.database),
                             Wide(options.user), L"", source.cliType);
    Comparison comparison(content, options);
    VirtualTable nowhere; // joins are not compared; nothing else passes the splitter
    StatementSplitter splitter(
        nowhere, [&comparison](Statement& statement) { comparison.Take(statement); }, true);
    generator.SetOuput(&splitter);
    generator.SetTableType(options.tableTypes);
    SetAbortTarget(&generator);
    WyString errorText;
    bool succeeded = SendRequest(generator, options, errorText);
    splitter.Flush();
    SetAbortTarget(nullptr);
    generator.SetImport(nullptr); // the source is ours, not the generator's
    source.import->CloseConnection();
    log.Phase("compared the source with the repository");
    if (ReceivedSignal() != 0) {
        std::cerr << "udmlgen: interrupted; no report written\n";
        return 128 + ReceivedSignal();
    }
    if (!succeeded) {
        // A walk cut short would report everything after the failure as removed.
        Log::Error("diff failed: the source could not be walked; no report written", Lines(errorText));
        return kExitFailure;
    }
    comparison.ComparePending();
    comparison.FindRemoved();
    std::vector<Difference>& differences = comparison.Differences();
    Group(differences);
    const std::string report = options.jsonReport    ? JsonReport(options, differences)
                               : differences.empty() ? std::string()
                                                     : TextReport(differences);
    OutputFile output(options.outputFile);
    output.Open();
    output.Write(report.data(), report.size());
    if (!output.Finish(!output.Failed()))
        return kExitFailure;
    return differences.empty() ? 0 : kExitDifferences;
}

} // namespace udmlgen
