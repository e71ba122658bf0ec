// The snapshot source: reading the documented example, refusing malformed files with messages
// that say where, serving a file exactly as the in-memory source serves the same metadata, and
// capturing a source so that reading the capture gives the same records.
#include "import/snapshot/SnapshotImport.h"
#include "import/snapshot/SnapshotWriter.h"
#include "tests/support/FakeImport.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

const std::string kDataDir = std::string(UDML_SOURCE_DIR) + "/tests/import/data/";

std::string FileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string ErrorOf(const std::string& text) {
    try {
        ParseSnapshot(text, "t.json");
    } catch (const ErrorMessage& error) {
        return error.what();
    }
    return "(no error)";
}

std::string Capture(MIMetaDataImport& source, int32_t callInterface = 3) {
    std::ostringstream out;
    WriteSnapshot(source, callInterface, out);
    const std::string path = ScratchPath("capture-" + std::to_string(getpid()) + ".json");
    std::ofstream(path, std::ios::binary) << out.str();
    ExpectMatchesSnapshotSchema(path);
    return out.str();
}

TEST(SnapshotReadTest, ExampleFileFillsEveryList) {
    const SourceMetadata metadata = ParseSnapshot(FileText(kDataDir + "example-snapshot.json"), "example");
    EXPECT_EQ(3, metadata.callInterface);
    ASSERT_EQ(1u, metadata.columns.size());
    EXPECT_EQ(WyInt4Data, metadata.columns[0].dataType_);
    EXPECT_EQ(10u, metadata.columns[0].precision_);
    ASSERT_EQ(1u, metadata.columns[0].pickListFieldName.size());
    EXPECT_EQ(L"B", metadata.columns[0].pickListFieldName[0].pickFieldName);
    ASSERT_EQ(1u, metadata.foreignKeys.size());
    EXPECT_EQ(L"CustomerID", metadata.foreignKeys[0].fkColumnName_);
    EXPECT_EQ(1u, metadata.pickLists.count(L"PickList Account Type"));
    ASSERT_EQ(1u, metadata.viewLinks.size());
    EXPECT_EQ(WyStringVector({L"Id"}), metadata.viewLinks[0].destinationColumns_);
}

TEST(SnapshotReadTest, LeftOutFieldsStayFreshAndNumbersReachTheirLimits) {
    const SourceMetadata metadata =
        ParseSnapshot("\xEF\xBB\xBF{\"format\": \"udml-snapshot-1\", \"columns\": [{}, {\"dataType\": 2}, "
                      "{\"dataType\": 4000},"
                      " {\"dataType\": -7, \"columnName\": \"\\u00c4\\ud83d\\ude00\"}]}",
                      "t.json");
    EXPECT_EQ(ServerInfo::kCLI_ODBC350, metadata.callInterface);
    ASSERT_EQ(4u, metadata.columns.size());
    const MIColumn& fresh = metadata.columns[0];
    EXPECT_EQ(WyBitData, fresh.dataType_);
    EXPECT_TRUE(fresh.columnName_.empty());
    EXPECT_EQ(0u, fresh.precision_);
    EXPECT_FALSE(fresh.isHidden_);
    EXPECT_EQ(WyVarCharData, metadata.columns[1].dataType_);
    EXPECT_EQ(4000, metadata.columns[2].dataType_);
    EXPECT_EQ(-7, metadata.columns[3].dataType_);
    EXPECT_EQ(WyString(L"\u00c4\U0001F600"), metadata.columns[3].columnName_);

    const SourceMetadata limits = ParseSnapshot(
        R"({"format": "udml-snapshot-1", "source": {"callInterface": -2147483648, "targetType": 2147483647},
            "columns": [{"precision": 4294967295, "scale": 65535}]})",
        "t.json");
    EXPECT_EQ(INT32_MIN, limits.callInterface);
    EXPECT_EQ(INT32_MAX, limits.targetType);
    EXPECT_EQ(UINT32_MAX, limits.columns[0].precision_);
    EXPECT_EQ(UINT16_MAX, limits.columns[0].scale_);
}

// A lone surrogate, high or low, at the end of a text or before another escape, reads as U+FFFD;
// a pair is one character, and an escaped backslash before "u" is no escape at all.
TEST(SnapshotReadTest, LoneSurrogateEscapeReadsAsReplacementCharacter) {
    const SourceMetadata metadata = ParseSnapshot(
        R"({"format": "udml-snapshot-1", "catalogs": [{"catalog": "a\ud800", "remarks": "\udc00\ud800\u0041"},
            {"catalog": "\ud83d\ude00\ude00", "remarks": "\\ud800"}]})",
        "t.json");
    ASSERT_EQ(2u, metadata.catalogs.size());
    EXPECT_EQ(WyString(L"a\uFFFD"), metadata.catalogs[0].catalog_);
    EXPECT_EQ(WyString(L"\uFFFD\uFFFDA"), metadata.catalogs[0].remarks_);
    EXPECT_EQ(WyString(L"\U0001F600\uFFFD"), metadata.catalogs[1].catalog_);
    EXPECT_EQ(WyString(L"\\ud800"), metadata.catalogs[1].remarks_);
}

struct MalformedCase {
    std::string text;
    std::string message;
};

TEST(SnapshotReadTest, MalformedInputIsRefusedWithItsPlace) {
    const std::string head = R"({"format": "udml-snapshot-1", )";
    const MalformedCase cases[] = {
        {"", "snapshot t.json: line 1, column 1: invalid JSON: syntax error while parsing value - unexpected "
             "end of input; expected '[', '{', or a literal"},
        {"{\"format\": \"udml-snapshot-1\",\n  \"tables\": [tru]}",
         "snapshot t.json: line 2, column 17: invalid JSON: syntax error while parsing value - invalid "
         "literal; last read: '\"tables\": [tru]'"},
        {head + R"("tables": []} x)",
         "snapshot t.json: line 1, column 45: invalid JSON: syntax error while "
         "parsing value - invalid literal; last read: '\"tables\": []} x'; expected end of input"},
        {head + "\"catalogs\": [{\"catalog\": \"a\xFF\"}]}",
         "snapshot t.json: line 1, column 58: invalid JSON: syntax error while parsing value - invalid "
         "string: ill-formed UTF-8 byte; last read: '\"a\xEF\xBF\xBD'"},
        // Invalid JSON late in the file is reported before a record that does not fit earlier.
        {head + "\"tables\": [{\"tabel\": 1}],\n\"catalogs\": [}",
         "snapshot t.json: line 2, column 14: invalid JSON: syntax error while parsing value - unexpected "
         "'}'; expected '[', '{', or a literal"},
        {head + R"("catalogs": [{"catalog": "a", "remarks": "", "catalog": "b"}]})",
         "snapshot t.json: catalogs[0].catalog: duplicate field name"},
        {head + R"("viewLinks": [{}, {"sourceColumns": ["a", {"x": 1, "x": 2}]}]})",
         "snapshot t.json: viewLinks[1].sourceColumns[1].x: duplicate field name"},
        {R"({"source": {}})", "snapshot t.json: format: missing; expected \"udml-snapshot-1\""},
        // A wrong format is reported before an unknown field that comes first.
        {R"({"extra": 1, "format": "udml-snapshot-2"})",
         "snapshot t.json: format: expected \"udml-snapshot-1\", found \"udml-snapshot-2\""},
        {R"([1, 2])", "snapshot t.json: top level: expected an object, found an array"},
        {head + R"("tables": [{"table": "T", "tabel": "T"}]})",
         "snapshot t.json: tables[0].tabel: unknown field name"},
        {head + "\"catalogs\": " + std::string(100, '[') + "nul]",
         "snapshot t.json: line 1, column 146: invalid JSON: syntax error while parsing value - invalid "
         "literal; last read: '...[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[nul]'"},
        {"{\"x\": " + std::string(20000, '['),
         "snapshot t.json: line 1, column 10006: invalid JSON: nested deeper than 10000 levels"},
        {head + R"("x": 1e400})",
         "snapshot t.json: line 1, column 40: invalid JSON: number overflow parsing '1e400'"},
        {head + R"("columns": [{}, {}, {}, {"precision": "10"}]})",
         "snapshot t.json: columns[3].precision: expected an integer from 0 to 4294967295, found a string"},
        {head + R"("columns": [{"scale": 65536}]})",
         "snapshot t.json: columns[0].scale: 65536 is out of range (0 to 65535)"},
        {head + R"("columns": [{"length": 1.0}]})", "snapshot t.json: columns[0].length: expected an integer "
                                                    "from 0 to 4294967295, found a fractional number"},
        {head + R"("columns": [{"dataType": 2147483648}]})",
         "snapshot t.json: columns[0].dataType: 2147483648 is out of range (-2147483648 to 2147483647)"},
        {head + R"("columns": [{"dataType": "VarChar"}]})",
         "snapshot t.json: columns[0].dataType: unknown data type name \"VarChar\""},
        {head + R"("source": {"callInterface": 99999999999999999999}})",
         "snapshot t.json: source.callInterface: expected an integer from -2147483648 to 2147483647, found a "
         "fractional number"},
        {head + R"("source": {"eai": 1}})",
         "snapshot t.json: source.eai: expected true or false, found an integer"},
        {head + R"("tables": [{}, 7]})", "snapshot t.json: tables[1]: expected an object, found an integer"},
        {head + R"("viewLinks": [{"sourceColumns": ["a", false]}]})",
         "snapshot t.json: viewLinks[0].sourceColumns[1]: expected a string, found a boolean"},
    };
    for (const MalformedCase& c : cases)
        EXPECT_EQ(c.message, ErrorOf(c.text)) << "input: " << c.text.substr(0, 200);
}

// A file that is not there, a directory, and a device that never ends are refused at once, by
// name; a file with invalid JSON is reported like text, with the line counted in the file.
TEST(SnapshotReadTest, FilesThatCannotBeReadAreNamed) {
    auto errorOf = [](const std::string& path) {
        try {
            ReadSnapshotFile(path);
        } catch (const ErrorMessage& error) {
            return std::string(error.what());
        }
        return std::string("(no error)");
    };
    const std::string missing = kDataDir + "no-such-file.json";
    EXPECT_EQ("cannot open snapshot file " + missing + ": No such file or directory", errorOf(missing));
    EXPECT_EQ("cannot read snapshot file " + kDataDir + ": Is a directory", errorOf(kDataDir));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("cannot read snapshot file /dev/zero: not a regular file (a device or a pipe may never end); "
              "save the snapshot to a file and name that file",
              errorOf("/dev/zero"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

    const std::string bad = testing::TempDir() + "snapshot-bad.json";
    std::ofstream(bad, std::ios::binary)
        << "\xEF\xBB\xBF{\"format\": \"udml-snapshot-1\",\n\"tables\": [nul]}";
    EXPECT_EQ("snapshot " + bad +
                  ": line 2, column 15: invalid JSON: syntax error while parsing value - invalid literal; "
                  "last read: '\"tables\": [nul]'",
              errorOf(bad));
    std::remove(bad.c_str());
}

// The rich file sets every field of every record to something other than its fresh value (a
// data type outside the enumeration, an empty pick list, non-ASCII text), and was itself written
// by a capture: capturing what it reads must give it back byte for byte.
TEST(SnapshotWriteTest, RichFileRecapturesByteForByte) {
    const std::string path = kDataDir + "rich-snapshot.json";
    std::unique_ptr<SnapshotImport> source = ReadSnapshotFile(path);
    EXPECT_EQ(1u, source->PickLists().count(L"Empty List"));
    EXPECT_EQ(FileText(path), Capture(*source, source->CallInterface()));
}

TEST(SnapshotWriteTest, FreshRecordsAreWrittenWithEveryFieldInFixedOrder) {
    SourceMetadata metadata;
    MITable table;
    table.table_ = L"T";
    metadata.tables.push_back(table);
    MIColumn column;
    column.table_ = L"T";
    column.columnName_ = L"bad\xD800";
    metadata.columns.push_back(column);
    MemoryImport source(std::make_shared<const SourceMetadata>(metadata));
    EXPECT_EQ(ReadWholeFile(kDataDir + "minimal-capture.expected.json"),
              Capture(source, ServerInfo::kCLI_WS));
}

// The capture streams, so a failing source leaves what was written so far: a prefix of the
// whole capture, ending before the listing that failed.
TEST(SnapshotWriteTest, FailingSourceLeavesAPrefixOfTheCapture) {
    const SourceMetadata metadata = ParseSnapshot(FileText(kDataDir + "rich-snapshot.json"), "rich");
    FakeImport whole(metadata);
    const std::string complete = Capture(whole);
    FakeImport source(metadata);
    source.FailAt("Get(MIColumn)", 2);
    std::ostringstream out;
    EXPECT_THROW(WriteSnapshot(source, 3, out), ErrorMessage);
    EXPECT_EQ(0u, complete.rfind(out.str(), 0));
    EXPECT_EQ(std::string::npos, out.str().find("\"primaryKeys\""));
}

} // namespace
