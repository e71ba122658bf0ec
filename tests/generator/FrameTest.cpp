// The generator frame: sinks and their record boundaries, quoting of name paths, the request
// entry's depth rule and error text, and who owns the import source.
#include "support/FakeImport.h"
#include "support/TestGenerator.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <iostream>
#include <sstream>

namespace {

// Captures what the generator writes to standard output while it lives.
class CoutCapture {
public:
    CoutCapture() : m_old(std::cout.rdbuf(m_buffer.rdbuf())) {}
    ~CoutCapture() { std::cout.rdbuf(m_old); }
    std::string Text() const { return m_buffer.str(); }

private:
    std::ostringstream m_buffer;
    std::streambuf* m_old;
};

struct FrameTest : ::testing::Test {
    FakeImport import;
    WyString output;
    std::unique_ptr<TestGenerator> generator = TestGenerator::Over(&import, &output, L"Sales DB");
    WyString error = L"untouched";

    bool Request(TypeID type, int depthLimit, WyString catalog = L"", WyString schema = L"",
                 WyString table = L"") {
        if (type == kTIDATable)
            generator->SetCallInterfaceType(ServerInfo::kCLI_WS); // its table look-up is unguarded
        return generator->GenerateUdml(type, catalog, schema, table, L"", L"", L"", L"", error, depthLimit,
                                       0xffff, false);
    }
    void WriteOrderLinesPath() {
        WyString schema = L"dbo", catalog, table = L"Order \"Lines\"";
        generator->GenerateQualifiedUdml(&generator->m_strDatabase, &catalog, &schema, &table, nullptr);
    }
};

TEST_F(FrameTest, NamePathReachesTheRecordSinkAsTwelveRecords) {
    VirtualTable records;
    generator->SetOuput(&records);
    WriteOrderLinesPath();
    const std::vector<std::string> expected = {
        "\"", "Sales DB", "\"", ".\"", "", "\"", ".\"", "dbo", "\"", ".\"", "Order \"\"Lines\"\"", "\""};
    EXPECT_EQ(expected, records.Records());
    EXPECT_EQ("\"Sales DB\".\"\".\"dbo\".\"Order \"\"Lines\"\"\"", records.Text());
}

TEST_F(FrameTest, EverySinkReceivesTheSameText) {
    const std::string expected = "\"Sales DB\".\"\".\"dbo\".\"Order \"\"Lines\"\"\"";
    WriteOrderLinesPath();
    EXPECT_EQ(expected, Utf8(output));

    CoutCapture capture;
    generator->SetOuputStdOut();
    WriteOrderLinesPath();
    EXPECT_EQ(expected, capture.Text());
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
    ASSERT_EQ(3u, records.Records().size());
    EXPECT_EQ("Gr\xC3\xB6\xC3\x9F"
              "e",
              records.Records()[0]);
    EXPECT_EQ(7u, records.Records()[0].size());
    EXPECT_EQ("", records.Records()[1]); // an empty piece is still one record
    EXPECT_EQ("\xEF\xBF\xBD\xF0\x9F\x98\x80", records.Records()[2]);

    generator->SetOuput(&output);
    generator->OutputCString("Gr\xC3\xB6\xC3\x9F"
                             "e \xFF!");
    EXPECT_EQ(L"Größe \uFFFD!", output);
}

TEST_F(FrameTest, NoSinkWritesNothing) {
    generator->m_nOutputType = CUdmlGenerator::oNothing;
    WriteOrderLinesPath();
    generator->m_nOutputType = static_cast<CUdmlGenerator::OutputType>(3);
    generator->OutputCString("x");
    generator->OutputQualifiedWyString(L"q", L"n", true);
    EXPECT_EQ(L"", output);
    WyString part = L"p";
    EXPECT_EQ(L"\"p\"", generator->GenerateQualifiedUDMLStr(&part, nullptr));
}

TEST_F(FrameTest, QualifiedOutputWritesThreeRecordsOrOne) {
    VirtualTable records;
    generator->SetOuput(&records);
    generator->OutputQualifiedWyString(L"q", L"n", true);
    generator->OutputQualifiedWyString(L"q", L"n", false);
    EXPECT_EQ((std::vector<std::string>{"q", ".", "n", "n"}), records.Records());
}

TEST_F(FrameTest, RequestWithoutImportSourceFailsQuietly) {
    TestGenerator lonely;
    WyString text = L"before";
    EXPECT_FALSE(
        lonely.GenerateUdml(kTIDADatabase, L"", L"", L"", L"", L"", L"", L"", text, -1, 0xffff, false));
    EXPECT_EQ(L"before", text);
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
    EXPECT_TRUE(Request(kTIDTable, -1, L"C", L"S", L"T"));
    EXPECT_EQ(L"C", generator->m_strCatalog);
    EXPECT_EQ(L"S", generator->m_strSchema);
    EXPECT_EQ(L"T", generator->m_strTable);
    EXPECT_EQ(L"", output);
    EXPECT_EQ(0, generator->m_nDepth);
}

TEST_F(FrameTest, DriverErrorBecomesOneLinePerMessage) {
    import.FailAt("PrepareForTable(", 1, {L"M1", L"M2"});
    EXPECT_FALSE(Request(kTIDATable, -1, L"C", L"S", L"T"));
    EXPECT_EQ(L"M1\nM2\n", error);
    EXPECT_EQ(0, generator->m_nDepth);
}

TEST_F(FrameTest, ErrorWithoutMessagesEmptiesTheErrorText) {
    import.FailAt("PrepareForTable(", 1, {});
    EXPECT_FALSE(Request(kTIDATable, -1, L"C", L"S", L"T"));
    EXPECT_EQ(L"", error);
}

TEST_F(FrameTest, LongMessagesArriveWhole) {
    const WyString longMessage(600, L'x');
    import.FailAt("PrepareForTable(", 1, {longMessage});
    EXPECT_FALSE(Request(kTIDATable, -1, L"C", L"S", L"T"));
    WyString joined;
    for (wchar_t c : error)
        if (c != L'\n')
            joined += c;
    EXPECT_EQ(longMessage, joined); // split into lines of at most 254 units, nothing lost
}

TEST_F(FrameTest, OtherExceptionsFailWithoutTouchingTheErrorText) {
    import.FailWithOtherAt("PrepareForTable(", 1);
    EXPECT_FALSE(Request(kTIDATable, -1, L"C", L"S", L"T"));
    EXPECT_EQ(L"untouched", error);
    EXPECT_EQ(0, generator->m_nDepth);
}

TEST(FrameConnection, HandedInSourceStaysTheHostsUntilDisconnect) {
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
}

TEST(FrameConnection, ConnectReplacesTheAttachedSource) {
    auto counters = std::make_shared<FakeImport::Counters>();
    auto* import = new FakeImport();
    import->SetCounters(counters);
    TestGenerator generator(nullptr, import, L"", L"DB", L"", L"", static_cast<CLIType>(77));
    EXPECT_FALSE(generator.Connect(L"src", L"user", L"pw")); // no driver for type 77
    EXPECT_FALSE(generator.IsConnected());
    EXPECT_EQ(1, counters->closed);
    EXPECT_EQ(1, counters->destroyed);
    EXPECT_EQ(L"src", generator.GetSource());
    EXPECT_EQ(L"user", generator.GetUser());
    EXPECT_EQ(L"pw", generator.GetPassword());
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
}

TEST(FrameConnection, SourceThatFailsToOpenStaysAttached) {
    TestGenerator generator;
    // The ODBC source exists for the default call interface; a data source that cannot exist
    // fails to open, and the generator still counts as connected.
    EXPECT_TRUE(generator.Connect(L"udmlgen-no-such-dsn", L"", L""));
    EXPECT_TRUE(generator.IsConnected());
}

TEST(FrameConnection, DefaultsAfterConstruction) {
    TestGenerator generator;
    EXPECT_EQ(ServerInfo::kCLI_ODBC350, generator.GetCallInterfaceType());
    EXPECT_EQ(CUdmlGenerator::oNothing, generator.GetOutputType());
    EXPECT_EQ(0xffff, generator.m_fGenerate);
    EXPECT_EQ(1, generator.m_tableType);
    EXPECT_EQ(-1, generator.m_nDepthLimit);
    EXPECT_EQ(nullptr, generator.m_parrayForeignKeys);
    EXPECT_FALSE(generator.IsSynonymBranch());
}

} // namespace
