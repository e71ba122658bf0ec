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
        for (size_t pair = r.Below(3); pair > 0; --pair) {
            link.sourceColumns_.push_back(r.Name());
            link.destinationColumns_.push_back(r.Name());
        }
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

struct Request {
    int32_t type = kTIDADatabase;
    WyString catalog, schema, table, uri, column;
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
    EXPECT_TRUE(generator.GenerateUdml(q.type, q.catalog, q.schema, q.table, q.uri, q.column, L"", L"", error,
                                       q.depth, q.mask, false))
        << Utf8(error);
    generator.SetImport(nullptr);
    return Utf8(out);
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

std::string ReadBackError(const std::string& text) {
    ARpGateway repository;
    try {
        UdmlReader::ReadText(repository, text, "output");
    } catch (const ErrorMessage& error) {
        return error.what();
    }
    return "";
}

void RunCase(unsigned seed) {
    Random r{std::mt19937(seed)};
    const SourceMetadata source = RandomSource(r);
    const std::string snapshot = Capture(source), file = ScratchPath("property.json");
    ASSERT_EQ(snapshot, Capture(ParseSnapshot(snapshot, "property.json"))) << "capture, read, capture again";
    std::ofstream(file, std::ios::binary) << snapshot;
    const std::string tool = "timeout 60 " + ShellQuote(UdmlgenPath()) + " ";
    if (seed % 16 == 0) {
        const CommandResult capture = RunCommand(tool + "snapshot --snapshot=" + ShellQuote(file) + " -o " +
                                                 ShellQuote(file + ".again"));
        ASSERT_EQ(0, capture.exitStatus) << capture.standardError;
        EXPECT_EQ(snapshot, ReadWholeFile(file + ".again"));
    }

    WyString database;
    while (database.empty())
        database = r.Name();
    Request q;
    q.depth = r.OneIn(2) ? -1 : static_cast<int>(r.Below(7));
    q.types = std::vector<uint8_t>{0, 1, 3, 5, 15}[r.Below(5)];
    q.mask = r.OneIn(2) ? 0xffff : static_cast<int>((r.OneIn(4) ? 0 : 0x08) | (2 << r.Below(6)));
    const size_t kind = r.Below(8);
    if (kind >= 3 && !source.tables.empty()) {
        const MITable& t = source.tables[r.Below(source.tables.size())];
        const int32_t types[] = {kTIDACatalog, kTIDASchema, kTIDATable, kTIDAColumn, kTIDATableKey};
        q = Request{types[kind - 3],
                    r.OneIn(4) ? WyString(L"%") : t.catalog_,
                    kind > 3 ? t.schema_ : L"",
                    kind > 4 ? t.table_ : L"",
                    t.fullyQualifiedName_,
                    r.Name(),
                    q.depth,
                    q.mask,
                    q.types};
    }
    std::string existing;
    if (r.OneIn(3)) {
        const std::string containers =
            Library(source, database, Request{kTIDADatabase, L"", L"", L"", L"", L"", -1, 6, 0}, "");
        for (size_t at = containers.find("\nDECLARE"); at != std::string::npos;
             at = containers.find("\nDECLARE", at + 1))
            existing += r.OneIn(2) ? containers.substr(at, containers.find(";\n", at) + 2 - at) : "";
    }
    const std::string out = Library(source, database, q, existing);

    std::string command =
        tool + "--snapshot=" + ShellQuote(file) + " --database=" + ShellQuote(Utf8(database));
    const char* const kRequests[] = {"table", "column", "table-key", "catalog", "schema"};
    if (q.type != kTIDADatabase)
        command += std::string(" --request=") + kRequests[q.type == kTIDACatalog    ? 3
                                                          : q.type == kTIDASchema   ? 4
                                                          : q.type == kTIDAColumn   ? 1
                                                          : q.type == kTIDATableKey ? 2
                                                                                    : 0];
    const std::pair<const char*, const WyString*> path[] = {{"catalog", &q.catalog},
                                                            {"schema", &q.schema},
                                                            {"table", &q.table},
                                                            {"table-uri", &q.uri},
                                                            {"column", &q.column}};
    for (const auto& [option, value] : path)
        command += value->empty() || q.type == kTIDADatabase
                       ? ""
                       : std::string(" --") + option + "=" + ShellQuote(Utf8(*value));
    command += " --depth=" + std::to_string(q.depth) + " --table-types=" + std::to_string(q.types);
    if (q.mask != 0xffff) {
        const char* const kKinds[] = {"catalog", "schema", "table", "column", "foreign-key", "table-key"};
        std::string kinds;
        for (int bit = 0; bit < 6; ++bit)
            kinds += (q.mask & (2 << bit)) ? std::string(kinds.empty() ? "" : ",") + kKinds[bit] : "";
        command += " --generate=" + kinds;
    }
    if (!existing.empty()) {
        std::ofstream(file + ".udml", std::ios::binary) << existing;
        command += " --existing=" + ShellQuote(file + ".udml");
    }
    const bool links = (q.mask & 0x08) && !source.viewLinks.empty() && r.OneIn(2);
    const CommandResult run = RunCommand(command + (links ? " --view-links" : ""));
    ASSERT_EQ(0, run.exitStatus) << command << "\n" << run.standardError;
    EXPECT_EQ(out, run.standardOutput.substr(0, links ? out.size() : std::string::npos)) << command;
    EXPECT_EQ("", (q.mask & 0x08) ? ReadBackError(run.standardOutput) : "") << command;
    for (size_t at = existing.find("\nDECLARE"); at != std::string::npos;
         at = existing.find("\nDECLARE", at + 1))
        EXPECT_EQ(0u, Count(out, existing.substr(at, existing.find(";\n", at) + 2 - at))) << "declared again";

    if (q.type != kTIDADatabase || q.depth != -1 || !(q.mask & 0x08))
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
        bool described = false; // descriptions are looked up by schema and table name only
        for (const MITable& other : source.tables)
            described = described ||
                        (other.schema_ == t.schema_ && other.table_ == t.table_ && !other.remarks_.empty());
        if (described)
            continue;
        const std::string alone = Library(source, database,
                                          Request{kTIDATable, t.catalog_, t.schema_, t.table_,
                                                  t.fullyQualifiedName_, L"", -1, 0xffff, q.types},
                                          "");
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
