// The public entries a host calls besides the request entry: the table batch, the primary key,
// the collection of foreign keys and the view-link joins, with what each answers and leaves behind
// when the source fails. The statements' text itself is pinned by the golden texts.
#include "support/FakeImport.h"
#include "support/SourceBuilder.h"
#include "support/TestGenerator.h"

#include <gtest/gtest.h>

namespace {

const TablePath kOrders{L"CRM", L"Sales", L"ORDERS"};

struct Entries : ::testing::Test {
    void Start(SourceMetadata metadata, CLIType cli = ServerInfo::kCLI_ODBC350) {
        import = std::make_unique<FakeImport>(std::move(metadata));
        generator = TestGenerator::Over(import.get(), &out, L"DB", cli);
        generator->m_strCatalog = L"CRM";
        generator->m_strSchema = L"Sales";
    }
    WyString out;
    std::unique_ptr<FakeImport> import;
    std::unique_ptr<TestGenerator> generator;
};

TEST_F(Entries, BatchWritesOneBundlePerNameInSetOrderAndRestoresTheSink) {
    SourceMetadata source;
    source.tables = {Table({L"CRM", L"Sales", L"alpha"}), Table({L"CRM", L"Sales", L"beta"})};
    source.columns = {Column({L"CRM", L"Sales", L"alpha"}, L"ID", WyInt4Data, 10, 0)};
    source.primaryKeys = {PrimaryKey({L"CRM", L"Sales", L"alpha"}, L"ID", L"PK_A")};
    Start(source);
    generator->m_fGenerate = 0x0040;
    out = L"host text";
    WyStringSet names = {L"beta", L"alpha"};
    TableUDMLVector bundles(1);
    generator->GenerateTableUdml(names, bundles);

    ASSERT_EQ(3u, bundles.size());
    EXPECT_EQ(L"alpha", bundles[1].tableName);
    const std::string alpha = "\"DB\".\"CRM\".\"Sales\".\"alpha\"";
    EXPECT_EQ(
        "\nDECLARE TABLE " + alpha + " AS \"alpha\"\n HAVING( \n    " + alpha +
            ".\"ID\" AS \"ID\" TYPE INT PRECISION 10 SCALE 0 NOT NULLABLE VALUE TYPE  MAPPED COLUMN ''  "
            "MVLINK ''  DESCRIPTION {}\n );\n\nDECLARE TABLE KEY " +
            alpha + ".\"PK_A\" AS \"PK_A\"\n HAVING ( " + alpha + ".\"ID\" );\n",
        Utf8(bundles[1].udml));
    EXPECT_EQ(1u, bundles[1].columns.size());
    EXPECT_EQ(1u, bundles[1].primaryKeys.size());
    EXPECT_EQ(L"beta", bundles[2].tableName);
    EXPECT_EQ(L"\nDECLARE TABLE \"DB\".\"CRM\".\"Sales\".\"beta\" AS \"beta\";\n", bundles[2].udml);
    EXPECT_EQ(L"host text", out);
    generator->OutputCString("!");
    EXPECT_EQ(L"host text!", out);

    // A failure ends the batch silently, keeping the bundles finished before it.
    Start(source, ServerInfo::kCLI_WS);
    import->FailAt("PrepareForTable(", 2); // the web-service look-up of beta
    bundles.clear();
    generator->GenerateTableUdml(names, bundles);
    ASSERT_EQ(1u, bundles.size());
    EXPECT_EQ(L"alpha", bundles[0].tableName);
}

TEST_F(Entries, PrimaryKeyOfHandedInKeysOrOfTheColumnsLastListed) {
    SourceMetadata source;
    source.columns = {Column(kOrders, L"ID", WyInt4Data, 10, 0)};
    source.primaryKeys = {PrimaryKey(kOrders, L"ID", L"")};
    Start(source);
    // Nothing listed yet: no key. Then the base table is read while names follow the synonym.
    EXPECT_TRUE(generator->GeneratePrimaryKey(L"CRM", L"Sales", L"ORDERS", L""));
    EXPECT_EQ(L"", out);
    generator->setCheckColumnVector({L"ID"});
    EXPECT_TRUE(generator->GeneratePrimaryKey(L"CRM", L"Sales", L"SYN", L"ORDERS"));
    EXPECT_EQ(L"\nDECLARE TABLE KEY \"DB\".\"CRM\".\"Sales\".\"SYN\".\"PK_SYN\" AS \"PK_SYN\"\n HAVING ( "
              L"\"DB\".\"CRM\".\"Sales\".\"SYN\".\"ID\" );\n",
              out);

    out.clear();
    generator->setCheckColumnVector({});
    generator->SetMITableKeys({PrimaryKey(kOrders, L"X", L"K"), PrimaryKey(kOrders, L"Y", L"K")});
    EXPECT_TRUE(generator->GeneratePrimaryKey(L"CRM", L"Sales", L"ORDERS", L""));
    EXPECT_EQ(L"\nDECLARE TABLE KEY \"DB\".\"CRM\".\"Sales\".\"ORDERS\".\"K\" AS \"K\"\n HAVING ( "
              L"\"DB\".\"CRM\".\"Sales\".\"ORDERS\".\"X\",\n\"DB\".\"CRM\".\"Sales\".\"ORDERS\".\"Y\" );\n",
              out);

    Start(source);
    generator->setCheckColumnVector({L"ID"});
    import->FailWithOtherAt("PrepareForPrimaryKey", 1);
    EXPECT_FALSE(generator->GeneratePrimaryKey(L"CRM", L"Sales", L"ORDERS", L""));
}

TEST_F(Entries, ForeignKeysAreCollectedOnePerStatementWithoutTouchingTheSink) {
    SourceMetadata source;
    source.catalogs = {Catalog(L"CRM")};
    source.tables = {Table(kOrders), Table({L"CRM", L"Sales", L"LINES"})};
    source.foreignKeys = {ForeignKey(kOrders, L"CUST", L"CUSTOMERS", L"FK_C"),
                          ForeignKey(kOrders, L"PARENT", L"orders", L"FK_SELF"),
                          ForeignKey({L"CRM", L"Sales", L"LINES"}, L"ORDER_ID", L"ORDERS", L"FK_L")};
    Start(source);
    const WyString customerKey =
        L"\nDECLARE FOREIGN KEY \"DB\".\"CRM\".\"Sales\".\"ORDERS\".\"FK_C\" AS \"FK_C\"\n HAVING ( "
        L"\"DB\".\"CRM\".\"Sales\".\"ORDERS\".\"CUST\" )\n REFERENCES "
        L"\"DB\".\"CRM\".\"Sales\".\"CUSTOMERS\".\"PK_CUSTOMERS\";\n";
    // A self-reference is withdrawn, leaving an empty entry.
    WyStringVector collected{L"kept"};
    ASSERT_TRUE(generator->GenerateForeignKeys(L"CRM", L"Sales", L"ORDERS", L"", &collected));
    EXPECT_EQ((WyStringVector{L"kept", customerKey, L""}), collected);
    EXPECT_EQ(CUdmlGenerator::oNothing, generator->GetOutputType());

    collected = {};
    ASSERT_TRUE(generator->GenerateAllForeignKeys(&collected));
    ASSERT_EQ(3u, collected.size());
    EXPECT_EQ(customerKey, collected[0]);
    EXPECT_NE(WyString::npos, collected[2].find(L"\"FK_L\" AS \"FK_L\""));
    EXPECT_EQ(L"", out);
}

TEST_F(Entries, ViewLinksEndWithFalseOnAFailureAnAbortOrNoSource) {
    ARpGateway gateway;
    for (const wchar_t* name : {L"A", L"B"})
        gateway.DeclareObject(kTIDATable, QualifiedName{L"DB", L"CRM", L"Sales", name});
    SourceMetadata source;
    source.viewLinks = {MIViewLink{L"L1", L"A", L"B", 4, {}, {}}, MIViewLink{L"L2", L"B", L"B", 4, {}, {}}};
    Start(source, ServerInfo::kCLI_ZEL_HTTP);
    generator->setRpGateway(&gateway);
    generator->m_importedZelTableNames = {L"A", L"B"};
    import->FailAt("Get(MIViewLink)", 2);
    EXPECT_FALSE(generator->GenerateViewLinks({L"A", L"B"}, {}, {}));
    EXPECT_NE(WyString::npos, out.find(L"ONE TO MANY;")); // the first join stays written

    out.clear();
    generator->Abort();
    EXPECT_FALSE(generator->GenerateViewLinks({L"A", L"B"}, {}, {}));
    generator->m_bAbort = false;
    generator->SetImport(nullptr);
    EXPECT_FALSE(generator->GenerateViewLinks({L"A", L"B"}, {}, {}));
    EXPECT_EQ(L"", out);
}

} // namespace
