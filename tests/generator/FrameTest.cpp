// The generator frame: sinks and their record boundaries, quoting of name paths, the request
// entry's depth rule and error text, and who owns the import source.
#include "support/FakeImport.h"
#include "support/SourceBuilder.h"
#include "support/TestGenerator.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

namespace {

struct FrameTest : ::testing::Test {
    FakeImport import;
    WyString output;
    std::unique_ptr<TestGenerator> generator = TestGenerator::Over(&import, &output, L"Sales DB");
    WyString error = L"untouched";

    bool TableRequest() {
        generator->SetCallInterfaceType(ServerInfo::kCLI_WS); // its table look-up is unguarded
        return generator->GenerateUdml(kTIDATable, L"C", L"S", L"T", L"", L"", L"", L"", error, -1, 0xffff,
                                       false);
    }
    void WriteOrderLinesPath() {
        WyString schema = L"dbo", catalog, table = L"Order \"Lines\"";
        generator->GenerateQualifiedUdml(&generator->m_strDatabase, &catalog, &schema, &table, nullptr);
    }
};

TEST_F(FrameTest, EverySinkReceivesTheSameTextInTheSameRecords) {
    const std::string expected = "\"Sales DB\".\"\".\"dbo\".\"Order \"\"Lines\"\"\"";
    WriteOrderLinesPath();
    EXPECT_EQ(expected, Utf8(output));

    VirtualTable records;
    generator->SetOuput(&records);
    WriteOrderLinesPath();
    EXPECT_EQ((std::vector<std::string>{"\"", "Sales DB", "\"", ".\"", "", "\"", ".\"", "dbo", "\"", ".\"",
                                        "Order \"\"Lines\"\"", "\""}),
              records.Records());
    VirtualTable qualified;
    generator->SetOuput(&qualified);
    generator->OutputQualifiedWyString(L"q", L"n", true);
    generator->OutputQualifiedWyString(L"q", L"n", false);
    EXPECT_EQ((std::vector<std::string>{"q", ".", "n", "n"}), qualified.Records());

    std::ostringstream captured;
    std::streambuf* old = std::cout.rdbuf(captured.rdbuf());
    generator->SetOuputStdOut();
    WriteOrderLinesPath();
    std::cout.rdbuf(old);
    EXPECT_EQ(expected, captured.str());

    // Without a sink, or with an unknown kind, nothing is written but names are still quoted.
    output.clear();
    generator->SetOuput(&output);
    generator->m_nOutputType = CUdmlGenerator::oNothing;
    WriteOrderLinesPath();
    generator->m_nOutputType = static_cast<CUdmlGenerator::OutputType>(3);
    generator->OutputCString("x");
    EXPECT_EQ(L"", output);
    WyString part = L"p";
    EXPECT_EQ(L"\"p\"", generator->GenerateQualifiedUDMLStr(&part, nullptr));
}

TEST_F(FrameTest, NamePathEdges) {
    WyString single = L"only";
    generator->GenerateQualifiedUdml(&single, nullptr);
    generator->GenerateQualifiedUdml(nullptr);
    EXPECT_EQ(L"\"only\"", output);
    WyString a = L"a\"", b = L"{b}";
    EXPECT_EQ(L"\"a\"\"\".\"{b}\"", generator->GenerateQualifiedUDMLStr(&a, &b, nullptr));
    EXPECT_EQ(L"", generator->GenerateQualifiedUDMLStr(nullptr));
}

TEST_F(FrameTest, NonAsciiTextIsConvertedToUtf8ForByteSinks) {
    VirtualTable records;
    generator->SetOuput(&records);
    generator->OutputWyString(L"Größe");
    generator->OutputWyString(L"");
    generator->OutputWyString(WyString(1, static_cast<wchar_t>(0xD800)) + L"\U0001F600");
    EXPECT_EQ((std::vector<std::string>{"Gr\xC3\xB6\xC3\x9F"
                                        "e",
                                        "", "\xEF\xBF\xBD\xF0\x9F\x98\x80"}),
              records.Records()); // an empty piece is still one record

    generator->SetOuput(&output);
    generator->OutputCString("Gr\xC3\xB6\xC3\x9F"
                             "e \xFF!");
    EXPECT_EQ(L"Größe \uFFFD!", output);
}

TEST_F(FrameTest, RequestWithoutImportSourceFailsQuietly) {
    TestGenerator lonely;
    EXPECT_FALSE(
        lonely.GenerateUdml(kTIDADatabase, L"", L"", L"", L"", L"", L"", L"", error, -1, 0xffff, false));
    EXPECT_EQ(L"untouched", error);
}

TEST_F(FrameTest, DepthLimitBelowOneReturnsAtOnceKeepingThePath) {
    generator->m_strCatalog = L"old";
    generator->m_fGenerate = 0;
    generator->Abort();
    for (int limit : {0, -2}) {
        EXPECT_TRUE(generator->GenerateUdml(kTIDACatalog, L"new", L"", L"", L"", L"", L"", L"", error, limit,
                                            0x20, true));
        EXPECT_EQ(L"old", generator->m_strCatalog);
        EXPECT_EQ(0x20, generator->m_fGenerate);
        EXPECT_FALSE(generator->m_bAbort);
        EXPECT_TRUE(generator->m_bUseExistingStructs);
        EXPECT_EQ(0, generator->m_nDepth);
    }
    EXPECT_EQ(L"untouched", error);
    EXPECT_TRUE(import.Calls().empty());
}

TEST_F(FrameTest, UnknownObjectTypeSucceedsWithoutOutputButTakesThePath) {
    EXPECT_TRUE(
        generator->GenerateUdml(kTIDTable, L"C", L"S", L"T", L"", L"", L"", L"", error, -1, 0xffff, false));
    EXPECT_EQ(L"C|S|T",
              generator->m_strCatalog + L"|" + generator->m_strSchema + L"|" + generator->m_strTable);
    EXPECT_EQ(L"", output);
}

TEST_F(FrameTest, FailuresReachTheErrorTextOneLinePerMessage) {
    const WyString longMessage(600, L'x');
    struct Case {
        std::vector<WyString> messages;
        WyString expected;
    };
    // A long message comes in lines of at most 254 units, with nothing lost.
    std::wstring longLines;
    for (size_t at = 0; at < longMessage.size(); at += 254)
        longLines += longMessage.substr(at, 254) + L"\n";
    const Case cases[] = {{{L"M1", L"M2"}, L"M1\nM2\n"}, {{}, L""}, {{longMessage}, longLines}};
    for (const Case& c : cases) {
        error = L"untouched";
        import.FailAt("PrepareForTable(", 1, c.messages);
        EXPECT_FALSE(TableRequest());
        EXPECT_EQ(c.expected, error);
        EXPECT_EQ(0, generator->m_nDepth);
    }

    // Any other exception fails the request without touching the error text.
    error = L"untouched";
    import.FailWithOtherAt("PrepareForTable(", 1);
    EXPECT_FALSE(TableRequest());
    EXPECT_EQ(L"untouched", error);
    EXPECT_EQ(0, generator->m_nDepth);
}

// The source handed to a generator stays the host's: only Disconnect or Connect closes and deletes it.
TEST(FrameConnection, HandedInSourceStaysTheHostsUntilDisconnectOrConnect) {
    auto counters = std::make_shared<FakeImport::Counters>();
    auto* import = new FakeImport();
    import->SetCounters(counters);
    {
        TestGenerator generator(nullptr, import, L"", L"DB", L"", L"", ServerInfo::kCLI_ODBC350);
        EXPECT_TRUE(generator.IsConnected());
        EXPECT_FALSE(generator.m_bAutoClean);
    }
    EXPECT_EQ(0, counters->closed);
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
    EXPECT_EQ(2, counters->closed);
    EXPECT_EQ(2, counters->destroyed);
    EXPECT_EQ(L"src|user|pw",
              generator.GetSource() + L"|" + generator.GetUser() + L"|" + generator.GetPassword());
}

TEST(FrameConnection, OwnSourceIsClosedAndDestroyedWithTheGenerator) {
    auto counters = std::make_shared<FakeImport::Counters>();
    {
        TestGenerator generator;
        EXPECT_TRUE(generator.m_bAutoClean);
        auto* import = new FakeImport();
        import->SetCounters(counters);
        generator.SetImport(import);
    }
    EXPECT_EQ(1, counters->closed);
    EXPECT_EQ(1, counters->destroyed);

    // The ODBC source exists for the default call interface; a data source that cannot exist
    // fails to open, and the generator still counts as connected.
    TestGenerator generator;
    EXPECT_TRUE(generator.Connect(L"udmlgen-no-such-dsn", L"", L""));
    EXPECT_TRUE(generator.IsConnected());
}

} // namespace

namespace {
// The records of a record-table sink, each ended by "|": the boundaries made visible.
std::string Pieces(const VirtualTable& table) {
    std::string text;
    for (const std::string& record : table.Records())
        text += record + "|";
    return text;
}

// A record-table host stores what it receives record by record, so the boundaries are part of the
// output: every piece is one record, an empty one included, and an absent piece is no record.
TEST(RecordTable, OneRecordPerPieceOfATableStatementAndOfAJoin) {
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
} // namespace
