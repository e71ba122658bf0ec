// Random sources with awkward names and random requests, run through the library and through the
// built udmlgen, must keep what holds for every input: the output reads back, each selected table
// is declared once and alike in a table request, --existing objects are not declared again, and a
// capture replays byte for byte. UDML_PROPERTY_CASES and UDML_PROPERTY_SEED widen the run.
#include "SMUOdbcGenerator.h"
#include "import/SearchPattern.h"
#include "import/memory/MemoryImport.h"
#include "import/snapshot/SnapshotImport.h"
#include "import/snapshot/SnapshotWriter.h"
#include "platform/BaseStringUtil.h"
#include "platform/repository/UdmlReader.h"
#include "support/RunCommand.h"
#include "support/SourceBuilder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace {

std::string Utf8(const WyString& text) {
    std::string out;
    BaseStringUtil::AppendUtf8(text, out);
    return out;
}

struct Random {
    std::mt19937 engine;
    size_t Below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(engine); }
    bool OneIn(size_t n) { return Below(n) == 0; }
    WyString Name() {
        static const WyString kLetters = L"\"\"'\\\\%_{} .,;()aAb\u00e9\u00df\U0001F600";
        WyString name(Below(5), L'a');
        for (wchar_t& c : name)
            c = kLetters[Below(kLetters.size())];
        return name;
    }
    // Distinct names; `apart`: also none matching another as a search pattern, so that the walk
    // reaches each catalog or schema by its own name only (the empty name, every name, stays alone).
    std::vector<WyString> Names(size_t count, bool apart) {
        std::vector<WyString> out;
        for (int tries = 0; out.size() < count && tries < 40; ++tries) {
            const WyString name = Name();
            bool clash = false;
            for (const WyString& other : out)
                clash = clash || other == name ||
                        (apart && (MatchesSearchPattern(other, name) || MatchesSearchPattern(name, other)));
            if (!clash)
                out.push_back(name);
        }
        return out;
    }
};

SourceMetadata RandomSource(Random& r) {
    SourceMetadata m;
    m.callInterface = r.OneIn(3) ? ServerInfo::kCLI_ZEL_HTTP : ServerInfo::kCLI_ODBC350;
    static const wchar_t* const kTypes[] = {L"TABLE", L"VIEW", L"SYSTEM TABLE", L"SYNONYM",
                                            L"LOCAL TEMPORARY"};
    for (const WyString& catalog : r.Names(1 + r.Below(2), true)) {
        m.catalogs.push_back(Catalog(catalog));
        for (const WyString& schema : r.Names(1 + r.Below(3), true)) {
            m.schemas.push_back(Schema(catalog, schema));
            for (const WyString& name : r.Names(r.Below(4), false)) {
                const TablePath path{catalog, schema, name};
                MITable table = Table(path, r.OneIn(2) ? L"" : r.Name(), r.OneIn(2) ? L"" : r.Name());
                table.tableType_ = kTypes[r.Below(5)];
                const std::vector<WyString> columns = r.Names(r.Below(4), false);
                for (const WyString& column : columns) {
                    m.columns.push_back(Column(path, column, static_cast<WyDataType>(r.Below(28)),
                                               static_cast<uint32>(r.Below(40)),
                                               static_cast<uint16>(r.Below(2)), r.Name()));
                    m.columns.back().MVLINK_NAME = r.OneIn(3) ? r.Name() : L"";
                }
                if (!columns.empty() && r.OneIn(2))
                    m.primaryKeys.push_back(PrimaryKey(path, columns[0], r.Name()));
                if (!columns.empty() && !m.tables.empty() && r.OneIn(2)) {
                    const MITable& to = m.tables[r.Below(m.tables.size())];
                    m.foreignKeys.push_back(ForeignKey(path, columns[0], to.table_, r.Name(), r.Name()));
                    m.foreignKeys.back().pkCatalog_ = to.catalog_;
                    m.foreignKeys.back().pkSchema_ = to.schema_;
                }
                m.tables.push_back(table);
            }
        }
    }
    for (size_t k = 0; m.callInterface == ServerInfo::kCLI_ZEL_HTTP && !m.tables.empty() && k < 3; ++k) {
        MIViewLink link;
        link.name_ = r.Name();
        link.source_ = m.tables[r.Below(m.tables.size())].table_;
        link.destination_ = m.tables[r.Below(m.tables.size())].table_;
        link.cardinality_ = static_cast<uint16>(r.Below(10));
        for (size_t pair = r.Below(3); pair > 0; --pair)
            link.sourceColumns_.push_back(r.Name()), link.destinationColumns_.push_back(r.Name());
        m.viewLinks.push_back(link);
    }
    return m;
}

std::string Capture(const SourceMetadata& metadata) {
    MemoryImport source(std::make_shared<const SourceMetadata>(metadata));
    std::ostringstream out;
    WriteSnapshot(source, metadata.callInterface, out);
    return out.str();
}

// The request kinds and path options as udmlgen names them, with the library's type ids.
const char* const kKinds[] = {"database", "catalog", "schema", "table", "column", "table-key"};
const int32_t kKindTypes[] = {kTIDADatabase, kTIDACatalog, kTIDASchema,
                              kTIDATable,    kTIDAColumn,  kTIDATableKey};
const char* const kPathOptions[] = {"catalog", "schema", "table", "table-uri", "column"};

struct Request {
    size_t kind = 0;
    WyString path[5]; // catalog, schema, table, table URI, column
    int depth = -1;
    int mask = 0xffff;
    uint8_t types = 1;
};

std::string Library(const SourceMetadata& metadata, const WyString& database, const Request& q,
                    const std::string& existing) {
    ARpGateway repository;
    UdmlReader::ReadText(repository, existing, "existing.udml");
    repository.DeclareDatabase(database);
    MemoryImport source(std::make_shared<const SourceMetadata>(metadata));
    CUdmlGenerator generator(&repository, &source, L"", database, L"", L"",
                             static_cast<CLIType>(metadata.callInterface));
    WyString out, error;
    generator.SetOuput(&out);
    generator.SetTableType(q.types);
    EXPECT_TRUE(generator.GenerateUdml(kKindTypes[q.kind], q.path[0], q.path[1], q.path[2], q.path[3],
                                       q.path[4], L"", L"", error, q.depth, q.mask, false))
        << Utf8(error);
    generator.SetImport(nullptr);
    return Utf8(out);
}

std::string Command(const std::string& file, const WyString& database, const Request& q) {
    std::string command = "timeout 60 " + ShellQuote(UdmlgenPath()) + " --snapshot=" + ShellQuote(file) +
                          " --database=" + ShellQuote(Utf8(database)) + " --request=" + kKinds[q.kind] +
                          " --depth=" + std::to_string(q.depth) +
                          " --table-types=" + std::to_string(q.types) +
                          // Random names need not exist; the library writes its text for them all the same.
                          " --allow-missing";
    for (size_t i = 0; i < 5; ++i)
        command +=
            q.path[i].empty() ? "" : std::string(" --") + kPathOptions[i] + "=" + ShellQuote(Utf8(q.path[i]));
    std::string kinds; // catalog 0x02 to table-key 0x40, in the order of the mask bits
    const char* const kBits[] = {"catalog", "schema", "table", "column", "foreign-key", "table-key"};
    for (int bit = 0; bit < 6; ++bit)
        kinds += (q.mask & (2 << bit)) ? std::string(kinds.empty() ? "" : ",") + kBits[bit] : "";
    return command + (q.mask == 0xffff ? "" : " --generate=" + kinds);
}

std::string Quoted(std::initializer_list<WyString> parts) {
    std::string out;
    for (const WyString& part : parts) {
        out += out.empty() ? "\"" : ".\"";
        for (char c : Utf8(part))
            out += c == '"' ? std::string("\"\"") : std::string(1, c);
        out += '"';
    }
    return out;
}

size_t Count(const std::string& text, const std::string& piece) {
    size_t count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
        ++count;
    return count;
}

// The statements of a text, each from its "\nDECLARE" to its ";\n" (no name here holds a newline).
std::vector<std::string> Statements(const std::string& text) {
    std::vector<std::string> out;
    for (size_t at = text.find("\nDECLARE"); at != std::string::npos; at = text.find("\nDECLARE", at + 1))
        out.push_back(text.substr(at, text.find(";\n", at) + 2 - at));
    return out;
}

void RunCase(unsigned seed) {
    Random r{std::mt19937(seed)};
    const SourceMetadata source = RandomSource(r);
    const std::string snapshot = Capture(source), file = ScratchPath("property.json");
    ASSERT_EQ(snapshot, Capture(ParseSnapshot(snapshot, "property.json"))) << "capture, read, capture again";
    std::ofstream(file, std::ios::binary) << snapshot;
    WyString database;
    while (database.empty())
        database = r.Name();
    Request q;
    q.depth = r.OneIn(2) ? -1 : static_cast<int>(r.Below(7));
    q.types = std::vector<uint8_t>{0, 1, 3, 5, 15}[r.Below(5)];
    q.mask = r.OneIn(2) ? 0xffff : static_cast<int>((r.OneIn(4) ? 0 : 0x08) | (2 << r.Below(6)));
    q.kind = source.tables.empty() ? 0 : r.Below(9) / 3 == 0 ? 0 : r.Below(6);
    if (q.kind != 0) {
        const MITable& t = source.tables[r.Below(source.tables.size())];
        const WyString path[] = {r.OneIn(4) ? WyString(L"%") : t.catalog_, t.schema_, t.table_,
                                 t.fullyQualifiedName_, r.Name()};
        for (size_t i = 0; i < 5 && (i < q.kind || i > 2); ++i)
            q.path[i] = path[i];
    }
    std::string existing;
    if (r.OneIn(3)) {
        Request containers;
        containers.mask = 0x06;
        for (const std::string& statement : Statements(Library(source, database, containers, "")))
            existing += r.OneIn(2) ? statement : "";
        std::ofstream(file + ".udml", std::ios::binary) << existing;
    }
    const std::string out = Library(source, database, q, existing);
    const std::string command =
        Command(file, database, q) + (existing.empty() ? "" : " --existing=" + ShellQuote(file + ".udml"));
    const bool links = (q.mask & 0x08) && !source.viewLinks.empty() && r.OneIn(2);
    const CommandResult run = RunCommand(command + (links ? " --view-links" : ""));
    ASSERT_EQ(0, run.exitStatus) << command << "\n" << run.standardError;
    EXPECT_EQ(out, run.standardOutput.substr(0, links ? out.size() : std::string::npos)) << command;
    try {
        ARpGateway repository;
        UdmlReader::ReadText(repository, (q.mask & 0x08) ? run.standardOutput : "", "output");
    } catch (const ErrorMessage& error) {
        ADD_FAILURE() << error.what() << "\n" << command;
    }
    for (const std::string& statement : Statements(existing))
        EXPECT_EQ(0u, Count(out, statement)) << "declared again";

    if (q.kind != 0 || q.depth != -1 || !(q.mask & 0x08))
        return;
    for (const MITable& t : source.tables) {
        const std::string head =
            "\nDECLARE TABLE " + Quoted({database, t.catalog_, t.schema_, t.table_}) + " AS \"";
        // The walk reaches a table through its catalog and schema names read as search patterns,
        // and never a table without a name.
        if (!TableTypeSelected(q.types, t.tableType_) || t.table_.empty() ||
            !MatchesSearchPattern(t.catalog_, t.catalog_) || !MatchesSearchPattern(t.schema_, t.schema_))
            continue;
        ASSERT_EQ(1u, Count(out, head)) << head;
        if (std::any_of(source.tables.begin(), source.tables.end(), [&t](const MITable& other) {
                return other.schema_ == t.schema_ && other.table_ == t.table_ && !other.remarks_.empty();
            }))
            continue; // descriptions are looked up by schema and table name only
        const Request table{3, {t.catalog_, t.schema_, t.table_, t.fullyQualifiedName_}, -1, 0xffff, q.types};
        const std::string alone = Library(source, database, table, "");
        auto statement = [&head](const std::string& text) {
            const size_t at = text.find(head);
            return at == std::string::npos ? std::string() : text.substr(at, text.find(";\n", at) + 2 - at);
        };
        EXPECT_EQ(statement(out), statement(alone)) << head;
    }
}

TEST(PropertyTest, RandomSourcesAndRequestsKeepTheirInvariantsInTheLibraryAndInUdmlgen) {
    const char* cases = std::getenv("UDML_PROPERTY_CASES");
    const char* seed = std::getenv("UDML_PROPERTY_SEED");
    const unsigned first = seed ? static_cast<unsigned>(std::strtoul(seed, nullptr, 10)) : 1;
    const unsigned count = cases ? static_cast<unsigned>(std::strtoul(cases, nullptr, 10)) : 200;
    for (unsigned k = first; k < first + count && !HasFailure(); ++k) {
        SCOPED_TRACE("UDML_PROPERTY_SEED=" + std::to_string(k) + " UDML_PROPERTY_CASES=1");
        RunCase(k);
    }
}

} // namespace
