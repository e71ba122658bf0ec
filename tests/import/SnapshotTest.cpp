// The snapshot source: reading the documented example, refusing malformed files with messages
// that say where, and capturing a source so that reading the capture gives the same records.
#include "import/snapshot/SnapshotImport.h"
#include "import/snapshot/SnapshotWriter.h"
#include "platform/BaseStringUtil.h"
#include "tests/support/FakeImport.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

const std::string kDataDir = std::string(UDML_SOURCE_DIR) + "/tests/import/data/";

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
    std::unique_ptr<MemoryImport> source = ReadSnapshotFile(kDataDir + "example-snapshot.json");
    const SourceMetadata& metadata = source->Metadata();
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
         "literal; "
         "last read: '\"tables\": [tru]'"},
        {head + R"("tables": []} x)",
         "snapshot t.json: line 1, column 45: invalid JSON: syntax error while "
         "parsing value - invalid literal; last read: '\"tables\": []} x'; expected end of input"},
        {head + "\"catalogs\": [{\"catalog\": \"a\xFF\"}]}",
         "snapshot t.json: line 1, column 58: invalid JSON: syntax error while parsing value - invalid "
         "string: "
         "ill-formed UTF-8 byte; last read: '\"a\xEF\xBF\xBD'"},
        {head + "\"catalogs\": [{\"catalog\": \"\\ud800\"}]}",
         "snapshot t.json: line 1, column 63: invalid JSON: syntax error while parsing value - invalid "
         "string: "
         "surrogate U+D800..U+DBFF must be followed by U+DC00..U+DFFF; last read: '\"\\ud800\"'"},
        {head + R"("catalogs": [{"catalog": "a", "remarks": "", "catalog": "b"}]})",
         "snapshot t.json: catalogs[0].catalog: duplicate field name"},
        {head + R"("pickLists": {"My list": [], "My list": []}})",
         "snapshot t.json: pickLists[\"My list\"]: duplicate field name"},
        {R"({"source": {}})", "snapshot t.json: format: missing; expected \"udml-snapshot-1\""},
        {R"({"format": "udml-snapshot-2"})",
         "snapshot t.json: format: expected \"udml-snapshot-1\", found \"udml-snapshot-2\""},
        {R"([1, 2])", "snapshot t.json: top level: expected an object, found an array"},
        {head + R"("tables": [{"table": "T", "tabel": "T"}]})",
         "snapshot t.json: tables[0].tabel: unknown field name"},
        {head + R"("extra": 1})", "snapshot t.json: extra: unknown field name"},
        {head + "\"catalogs\": " + std::string(100, '[') + "nul]",
         "snapshot t.json: line 1, column 146: invalid JSON: syntax error while parsing value - invalid "
         "literal; "
         "last read: '...[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[nul]'"},
        {head + R"("x": 1e400})",
         "snapshot t.json: line 1, column 40: invalid JSON: number overflow parsing '1e400'"},
        {head + R"("columns": [{}, {}, {}, {"precision": "10"}]})",
         "snapshot t.json: columns[3].precision: expected an integer from 0 to 4294967295, found a string"},
        {head + R"("columns": [{"scale": 65536}]})",
         "snapshot t.json: columns[0].scale: 65536 is out of range (0 to 65535)"},
        {head + R"("columns": [{"nullable": -1}]})",
         "snapshot t.json: columns[0].nullable: -1 is out of range (0 to 65535)"},
        {head + R"("columns": [{"length": 1.0}]})", "snapshot t.json: columns[0].length: expected an integer "
                                                    "from 0 to 4294967295, found a fractional number"},
        {head + R"("columns": [{"dataType": 2147483648}]})",
         "snapshot t.json: columns[0].dataType: 2147483648 is out of range (-2147483648 to 2147483647)"},
        {head + R"("columns": [{"dataType": "VarChar"}]})",
         "snapshot t.json: columns[0].dataType: unknown data type name \"VarChar\""},
        {head + R"("columns": [{"dataType": null}]})",
         "snapshot t.json: columns[0].dataType: expected a data type name or number, found null"},
        {head + R"("source": {"callInterface": 99999999999999999999}})",
         "snapshot t.json: source.callInterface: expected an integer from -2147483648 to 2147483647, found a "
         "fractional number"},
        {head + R"("source": {"eai": 1}})",
         "snapshot t.json: source.eai: expected true or false, found an integer"},
        {head + R"("tables": [{"remarks": null}]})",
         "snapshot t.json: tables[0].remarks: expected a string, found null"},
        {head + R"("tables": {}})", "snapshot t.json: tables: expected an array, found an object"},
        {head + R"("columns": [{"pickListFieldName": [{"fieldName": "A", "pickField": "B"}]}]})",
         "snapshot t.json: columns[0].pickListFieldName[0].pickField: unknown field name"},
        {head + R"("pickLists": {"Account Type": [{"fieldName": 5}]}})",
         "snapshot t.json: pickLists[\"Account Type\"][0].fieldName: expected a string, found an integer"},
        {head + R"("viewLinks": [{"sourceColumns": ["a", false]}]})",
         "snapshot t.json: viewLinks[0].sourceColumns[1]: expected a string, found a boolean"},
    };
    for (const MalformedCase& c : cases)
        EXPECT_EQ(c.message, ErrorOf(c.text)) << "input: " << c.text;
}

TEST(SnapshotReadTest, UnreadableFileIsNamed) {
    const std::string missing = kDataDir + "no-such-file.json";
    try {
        ReadSnapshotFile(missing);
        FAIL() << "a missing file must fail";
    } catch (const ErrorMessage& error) {
        EXPECT_EQ("cannot open snapshot file " + missing + ": No such file or directory",
                  std::string(error.what()));
    }
    EXPECT_THROW(ReadSnapshotFile(kDataDir), ErrorMessage);
}

// The rich file sets every field of every record to something other than its fresh value (a
// data type outside the enumeration, an empty pick list, non-ASCII text), and was itself written
// by a capture: capturing what it reads must give it back byte for byte.
TEST(SnapshotWriteTest, RichFileRecapturesByteForByte) {
    const std::string path = kDataDir + "rich-snapshot.json";
    std::unique_ptr<MemoryImport> source = ReadSnapshotFile(path);
    EXPECT_EQ(static_cast<WyDataType>(-9), source->Metadata().columns.at(1).dataType_);
    EXPECT_EQ(1u, source->Metadata().pickLists.count(L"Empty List"));
    EXPECT_EQ(ReadWholeFile(path), Capture(*source, source->Metadata().callInterface));
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

TEST(SnapshotWriteTest, FailingSourceWritesNothing) {
    FakeImport source(ReadSnapshotFile(kDataDir + "rich-snapshot.json")->Metadata());
    source.FailAt("Get(MIColumn)", 2);
    std::ostringstream out;
    EXPECT_THROW(WriteSnapshot(source, 3, out), ErrorMessage);
    EXPECT_EQ("", out.str());
}

} // namespace
