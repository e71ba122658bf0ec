// The selection options judged by what they promise: a run with filters writes, byte for byte,
// what the same run writes over a snapshot that holds only the selected objects. The expected
// snapshots are cut by hand from explicit name lists, not from the patterns.
#include "import/snapshot/SnapshotImport.h"
#include "import/snapshot/SnapshotWriter.h"
#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>

namespace {

// Answers whether an object is kept, for a path of one (catalog), two (schema) or three (table)
// names.
using Kept = std::function<bool(const std::vector<WyString>&)>;

CommandResult Udmlgen(const std::string& arguments) {
    return RunCommand(UdmlgenPath() + " " + arguments);
}

// What a source holding only the kept objects holds. A view link goes with a table it names that
// the source holds but not among the kept ones; pick lists stay where a kept column names them.
SourceMetadata OnlyKept(const SourceMetadata& all, const Kept& kept) {
    auto table = [&](const WyString& c, const WyString& s, const WyString& t) {
        return kept({c}) && kept({c, s}) && kept({c, s, t});
    };
    SourceMetadata only = all;
    only.catalogs.clear(), only.schemas.clear(), only.tables.clear(), only.columns.clear();
    only.primaryKeys.clear(), only.foreignKeys.clear(), only.pickLists.clear(), only.viewLinks.clear();
    for (const MICatalog& r : all.catalogs)
        if (kept({r.catalog_}))
            only.catalogs.push_back(r);
    for (const MISchema& r : all.schemas)
        if (kept({r.catalog_}) && kept({r.catalog_, r.schema_}))
            only.schemas.push_back(r);
    for (const MITable& r : all.tables)
        if (table(r.catalog_, r.schema_, r.table_))
            only.tables.push_back(r);
    for (const MIColumn& r : all.columns)
        if (table(r.catalog_, r.schema_, r.table_)) {
            only.columns.push_back(r);
            if (all.pickLists.count(r.picklistName))
                only.pickLists[r.picklistName] = all.pickLists.at(r.picklistName);
        }
    for (const MIPrimaryKey& r : all.primaryKeys)
        if (table(r.catalog_, r.schema_, r.table_))
            only.primaryKeys.push_back(r);
    for (const MIForeignKey& r : all.foreignKeys)
        if (table(r.fkCatalog_, r.fkSchema_, r.fkTable_) && table(r.pkCatalog_, r.pkSchema_, r.pkTable_))
            only.foreignKeys.push_back(r);
    auto leftOut = [&](const WyString& name) {
        bool held = false;
        for (const MITable& r : all.tables)
            if (r.table_ == name) {
                held = true;
                if (table(r.catalog_, r.schema_, r.table_))
                    return false;
            }
        return held;
    };
    for (const MIViewLink& r : all.viewLinks)
        if (!leftOut(r.source_) && !leftOut(r.destination_))
            only.viewLinks.push_back(r);
    return only;
}

std::string WriteSnapshotFile(const std::string& name, const SourceMetadata& metadata) {
    MemoryImport source(std::make_shared<const SourceMetadata>(metadata));
    std::ostringstream text;
    WriteSnapshot(source, metadata.callInterface, text);
    const std::string path = ScratchPath(name);
    std::ofstream(path, std::ios::binary) << text.str();
    return path;
}

void ExpectSameRun(const std::string& selected, const std::string& expected) {
    const CommandResult run = Udmlgen(selected), want = Udmlgen(expected);
    // A request for a table left out fails as one for a table the source does not hold.
    ASSERT_EQ(want.exitStatus, run.exitStatus) << selected << "\n" << run.standardError << want.standardError;
    EXPECT_TRUE(run.standardOutput == want.standardOutput)
        << selected << "\n"
        << DiffTexts(want.standardOutput, run.standardOutput);
}

bool In(const WyString& name, std::initializer_list<const wchar_t*> names) {
    for (const wchar_t* candidate : names)
        if (name == candidate)
            return true;
    return false;
}

TEST(CliSelection, SampleThroughOdbcWritesWhatASourceOfTheSelectedTablesWrites) {
    const std::string db = ScratchPath("selection-sales.db");
    const CommandResult built =
        RunCommand("bash " + std::string(UDML_SOURCE_DIR) + "/scripts/sample-db.sh " + db);
    ASSERT_EQ(0, built.exitStatus) << built.standardError;
    const std::string live =
        "--connect " + ShellQuote(built.standardOutput.substr(0, built.standardOutput.find('\n')));
    const std::string capture = ScratchPath("selection-sales.json");
    ASSERT_EQ(0, Udmlgen("snapshot " + live + " -o " + capture).exitStatus);
    const SourceMetadata all = ParseSnapshot(ReadWholeFile(capture), capture);

    const std::vector<std::pair<std::string, Kept>> cases = {
        {"--include-table 'order*'",
         [](auto& p) {
             return p.size() < 3 || In(p[2], {L"orders", L"order_lines", L"order_totals"});
         }},
        {"--exclude-table orders --exclude-table '?RODUCTS'",
         [](auto& p) {
             return p.size() < 3 || !In(p[2], {L"orders", L"products"});
         }},
        {"--include-table '\"\".Orders' --include-table customers --exclude-table 'c*s'",
         [](auto& p) { return p.size() < 3 || p[2] == L"orders"; }},
    };
    for (const auto& [filters, kept] : cases) {
        const std::string only =
            " --snapshot " + WriteSnapshotFile("selection-sales-only.json", OnlyKept(all, kept));
        ExpectSameRun(live + " --database Sales " + filters, only + " --database Sales");
        ExpectSameRun(live + " --database Sales --request table --table shipments " + filters,
                      only + " --database Sales --request table --table shipments");
        ExpectSameRun("snapshot " + live + " " + filters, "snapshot " + only);
    }
}

TEST(CliSelection, SnapshotWithCatalogsAndViewLinksWritesWhatASourceOfTheSelectedObjectsWrites) {
    const std::string kWarehouse = std::string(UDML_SOURCE_DIR) + "/tests/hardening/data/warehouse.json";
    SourceMetadata all = ParseSnapshot(ReadWholeFile(kWarehouse), kWarehouse);
    // Over the application-framework interface, so that the view links become joins.
    all.callInterface = ServerInfo::kCLI_ZEL_HTTP;
    auto link = [](const wchar_t* source, const wchar_t* destination, const wchar_t* column) {
        MIViewLink record;
        record.name_ = WyString(source) + L"Link";
        record.source_ = source, record.destination_ = destination, record.cardinality_ = 6;
        record.sourceColumns_.push_back(column), record.destinationColumns_.push_back(column);
        return record;
    };
    all.viewLinks = {link(L"Orders", L"Customers", L"CustomerId"),
                     link(L"Shipments", L"Regions", L"RegionId"), link(L"Employees", L"Depts", L"DeptId"),
                     link(L"Items", L"Ghost", L"Id")};
    const std::string source = " --snapshot " + WriteSnapshotFile("selection-warehouse.json", all);

    const std::vector<std::pair<std::string, Kept>> cases = {
        {"--exclude-schema ref --exclude-catalog hr",
         [](auto& p) { return p[0] == L"Sales" && (p.size() < 2 || p[1] != L"ref"); }},
        {"--include-table 'orders.*' --exclude-table '*.Shipment?'",
         [](auto& p) { return p.size() < 3 || (p[1] == L"Orders" && p[2] != L"Shipments"); }},
        {"--include-schema 'HR.*' --include-table 'e*' --include-table '\"Depts\"' --include-table Items",
         [](auto& p) { return p.size() < 2 || (p[0] == L"HR" && (p.size() < 3 || p[2] != L"Audit")); }},
        {"--include-catalog SALES --include-table '\"customers\"'",
         [](auto& p) { return p[0] == L"Sales" && p.size() < 3; }},
    };
    for (const auto& [filters, kept] : cases) {
        const std::string only =
            " --snapshot " + WriteSnapshotFile("selection-warehouse-only.json", OnlyKept(all, kept));
        ExpectSameRun(source + " --database D --view-links " + filters, only + " --database D --view-links");
        ExpectSameRun(source + " --database D --request schema --catalog Sales --schema Orders " + filters,
                      only + " --database D --request schema --catalog Sales --schema Orders");
        ExpectSameRun("snapshot" + source + " " + filters, "snapshot" + only);
    }
}

} // namespace
