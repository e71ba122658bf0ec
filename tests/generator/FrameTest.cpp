// The generator frame as a host sees it: the three sinks and their record boundaries, the error
// text of a failed request, and who owns the import source. Whole statements are pinned by the
// golden texts (tests/golden); these are what a command line cannot reach.
#include "support/FakeImport.h"
#include "support/SourceBuilder.h"
#include "support/TestGenerator.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

namespace {

// The records of a record-table sink, each ended by "|": the boundaries made visible.
std::string Pieces(const VirtualTable& table) {
    std::string text;
    for (const std::string& record : table.Records())
        text += record + "|";
    return text;
}

TEST(Sinks, EverySinkGetsTheSameTextAndTheRecordTableOneRecordPerPiece) {
    WyString output;
    std::unique_ptr<TestGenerator> generator = TestGenerator::Over(nullptr, &output, L"Sales DB");
    auto writeOrderLines = [&] {
        WyString schema = L"dbo", catalog, table = L"Order \"Lines\"";
        generator->GenerateQualifiedUdml(&generator->m_strDatabase, &catalog, &schema, &table, nullptr);
        generator->OutputWyString(L"|Größe");
        generator->OutputWyString(WyString(1, static_cast<wchar_t>(0xD800)));
    };
    const std::string expected = "\"Sales DB\".\"\".\"dbo\".\"Order \"\"Lines\"\"\"|Gr\xC3\xB6\xC3\x9F"
                                 "e\xEF\xBF\xBD";
    writeOrderLines();
    EXPECT_EQ(expected, Utf8(output));

    VirtualTable records;
    generator->SetOuput(&records);
    writeOrderLines();
    EXPECT_EQ("\"|Sales DB|\"|.\"||\"|.\"|dbo|\"|.\"|Order \"\"Lines\"\"|\"||Gr\xC3\xB6\xC3\x9F"
              "e|\xEF\xBF\xBD|",
              Pieces(records));

    std::ostringstream captured;
    std::streambuf* old = std::cout.rdbuf(captured.rdbuf());
    generator->SetOuputStdOut();
    writeOrderLines();
    std::cout.rdbuf(old);
    EXPECT_EQ(expected, captured.str());

    // Without a sink nothing is written, yet a quoted path is still made.
    output.clear();
    generator->SetOuput(&output);
    generator->m_nOutputType = CUdmlGenerator::oNothing;
    writeOrderLines();
    EXPECT_EQ(L"", output);
    WyString a = L"a\"", b = L"{b}";
    EXPECT_EQ(L"\"a\"\"\".\"{b}\"", generator->GenerateQualifiedUDMLStr(&a, &b, nullptr));
}

// A record-table host stores what it receives record by record, so the boundaries are part of the
// output: every piece is one record, an empty one included, and an absent piece is no record.
TEST(Sinks, OneRecordPerPieceOfATableStatementAndOfAJoin) {
    const TablePath path{L"C", L"S", L"T"};
    SourceMetadata source;
    source.tables = {Table(path)};
    source.columns = {Column(path, L"ID", WyInt4Data, 10, 0), Column(path, L"M", WyVarCharData, 5, 1)};
    source.columns[1].multiValued = 1; // and no destination field: still an empty piece
    FakeImport import(source);
    VirtualTable records;
    std::unique_ptr<TestGenerator> generator = TestGenerator::Over(&import, nullptr, L"DB");
    generator->SetOuput(&records);
    WyString error;
    ASSERT_TRUE(
        generator->GenerateUdml(kTIDATable, L"C", L"S", L"T", L"", L"", L"", L"", error, -1, 0xffff, false));
    const std::string table = "\"|DB|\"|.\"|C|\"|.\"|S|\"|.\"|T|\"|";
    EXPECT_EQ(
        "\nDECLARE TABLE |" + table + " AS \"|T|\"|\n HAVING( |\n    |" + table +
            ".\"|ID|\"| AS \"|ID|\"| TYPE |INT| PRECISION |10| SCALE |0| NOT NULLABLE| VALUE TYPE "
            "| MAPPED COLUMN '||' | MVLINK '||' | DESCRIPTION |{}|, |\n    |" +
            table +
            ".\"|M|\"| AS \"|M|\"| TYPE |VARCHAR| PRECISION |5| SCALE |0| NULLABLE| VALUE TYPE | MANY TO "
            "MANY | MAPPED COLUMN '||' | MVLINK '||' | DESCRIPTION |{}|\n )|;\n|",
        Pieces(records));

    // A cardinality without words leaves no piece between ") AS {} " and the end.
    ARpGateway gateway;
    for (const wchar_t* name : {L"A", L"B"})
        gateway.DeclareObject(kTIDATable, QualifiedName{L"DB", L"C", L"S", name});
    VirtualTable joins;
    generator->SetOuput(&joins);
    generator->setRpGateway(&gateway);
    generator->SetMIViewLinks({MIViewLink{L"L", L"A", L"B", 2, {}, {}}});
    ASSERT_TRUE(generator->GenerateViewLinks({L"A", L"B"}, {}, {}));
    EXPECT_EQ("\nDECLARE JOIN \"|A_B|\" AS \"|A_B|\" EXTERNAL \"|L|\" ON TABLES "
              "(|\"|DB|\"|.\"|C|\"|.\"|S|\"|.\"|B|\"|"
              ", |\"|DB|\"|.\"|C|\"|.\"|S|\"|.\"|A|\"|) AS {} |;|",
              Pieces(joins));
}

TEST(Request, FailuresReachTheErrorTextOneLinePerMessageOfAtMost254Units) {
    FakeImport import;
    WyString output;
    std::unique_ptr<TestGenerator> generator = TestGenerator::Over(&import, &output);
    generator->SetCallInterfaceType(ServerInfo::kCLI_WS); // its table look-up is unguarded
    const WyString longMessage = WyString(254, L'x') + L"yz";
    struct Case {
        std::vector<WyString> messages;
        WyString expected;
    };
    const Case cases[] = {{{L"M1", L"M2"}, L"M1\nM2\n"}, {{longMessage}, WyString(254, L'x') + L"\nyz\n"}};
    for (const Case& c : cases) {
        WyString error = L"untouched";
        import.FailAt("PrepareForTable(", 1, c.messages);
        EXPECT_FALSE(generator->GenerateUdml(kTIDATable, L"C", L"S", L"T", L"", L"", L"", L"", error, -1,
                                             0xffff, false));
        EXPECT_EQ(c.expected, error);
    }

    // Any other exception fails the request without touching the error text; so does a generator
    // without a source.
    WyString error = L"untouched";
    import.FailWithOtherAt("PrepareForTable(", 1);
    EXPECT_FALSE(
        generator->GenerateUdml(kTIDATable, L"C", L"S", L"T", L"", L"", L"", L"", error, -1, 0xffff, false));
    TestGenerator lonely;
    EXPECT_FALSE(
        lonely.GenerateUdml(kTIDADatabase, L"", L"", L"", L"", L"", L"", L"", error, -1, 0xffff, false));
    EXPECT_EQ(L"untouched", error);
}

// The source handed to a generator stays the host's: only Disconnect or Connect closes and
// deletes it; a source the generator made itself goes with the generator.
TEST(Connection, HandedInSourceStaysTheHostsUntilDisconnectOrConnect) {
    auto counters = std::make_shared<FakeImport::Counters>();
    auto* import = new FakeImport();
    import->SetCounters(counters);
    {
        TestGenerator generator(nullptr, import, L"", L"DB", L"", L"", ServerInfo::kCLI_ODBC350);
        EXPECT_TRUE(generator.IsConnected());
    }
    EXPECT_EQ(0, counters->destroyed);
    {
        TestGenerator generator(nullptr, import, L"", L"DB", L"", L"", ServerInfo::kCLI_ODBC350);
        generator.Disconnect();
        EXPECT_FALSE(generator.IsConnected());
        generator.Disconnect(); // a second time does nothing
    }
    EXPECT_EQ(1, counters->closed);
    EXPECT_EQ(1, counters->destroyed);

    import = new FakeImport();
    import->SetCounters(counters);
    TestGenerator generator(nullptr, import, L"", L"DB", L"", L"", static_cast<CLIType>(77));
    EXPECT_FALSE(generator.Connect(L"src", L"user", L"pw")); // no driver for type 77
    EXPECT_FALSE(generator.IsConnected());
    EXPECT_EQ(2, counters->destroyed);
    {
        TestGenerator owner;
        import = new FakeImport();
        import->SetCounters(counters);
        owner.SetImport(import);
    }
    EXPECT_EQ(3, counters->closed);
    EXPECT_EQ(3, counters->destroyed);
}

} // namespace
