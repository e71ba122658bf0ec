// The walk from database to catalog to schema to table and the catalog, schema and table
// statements: exact texts, the order of calls on the import source, depth limits, masks,
// repository checks, source kinds, the table batch and failures in the middle of a listing.
#include "tests/support/FakeImport.h"
#include "tests/support/SourceBuilder.h"
#include "tests/support/TestGenerator.h"

#include <gtest/gtest.h>

namespace {

constexpr int kAll = 0xffff;

// An INT column ID of the table, with its primary key named `keyName`.
void AddIdColumnAndKey(SourceMetadata& source, const TablePath& table, const wchar_t* keyName) {
    source.columns.push_back(Column(table, L"ID", WyInt4Data, 10, 0));
    source.primaryKeys.push_back(PrimaryKey(table, L"ID", keyName));
}

// Catalog CRM with schema Sales holding Orders; catalog HR with schema Staff holding Emp.
SourceMetadata TwoCatalogs() {
    SourceMetadata source;
    source.catalogs = {Catalog(L"CRM"), Catalog(L"HR")};
    source.schemas = {Schema(L"CRM", L"Sales"), Schema(L"HR", L"Staff")};
    source.tables = {Table({L"CRM", L"Sales", L"Orders"}, L"CRM.Sales.Orders"),
                     Table({L"HR", L"Staff", L"Emp"})};
    return source;
}

struct Harness {
    explicit Harness(SourceMetadata source, CLIType cli = ServerInfo::kCLI_ODBC350,
                     ARpGateway* gateway = nullptr)
        : import(std::move(source)), gen(TestGenerator::Over(&import, &out, L"SalesDB", cli, gateway)) {}
    bool Request(TypeID type, const WyString& catalog, const WyString& schema, const WyString& table,
                 int depthLimit, int mask = kAll, const WyString& uri = L"") {
        return gen->GenerateUdml(type, catalog, schema, table, uri, L"", L"", L"", error, depthLimit, mask,
                                 false);
    }
    std::string Text() const { return Utf8(out); }

    FakeImport import;
    WyString out;
    WyString error;
    std::unique_ptr<TestGenerator> gen;
};

std::string SchemaStmt(const std::string& catalog, const std::string& schema) {
    return "\nDECLARE SCHEMA \"SalesDB\".\"" + catalog + "\".\"" + schema + "\" AS \"" + schema + "\";\n";
}
// A table statement one level beyond the limit, without optional pieces.
std::string CutTable(const std::string& catalog, const std::string& schema, const std::string& table) {
    return "\nDECLARE TABLE \"SalesDB\".\"" + catalog + "\".\"" + schema + "\".\"" + table + "\" AS \"" +
           table + "\" NO INTERSECTION;\n";
}

const std::string kCatCRM = "\nDECLARE CATALOG \"SalesDB\".\"CRM\" AS \"CRM\";\n";
const std::string kCatHR = "\nDECLARE CATALOG \"SalesDB\".\"HR\" AS \"HR\";\n";
const std::string kSchSales = SchemaStmt("CRM", "Sales");
const std::string kSchStaff = SchemaStmt("HR", "Staff");
const std::string kOrdersHead = "\nDECLARE TABLE \"SalesDB\".\"CRM\".\"Sales\".\"Orders\" AS \"Orders\"";
const std::string kOrdersCut = kOrdersHead + " NO INTERSECTION URI 'CRM.Sales.Orders';\n";
const std::string kOrdersFull = kOrdersHead + " URI 'CRM.Sales.Orders';\n";
const std::string kEmpCut = CutTable("HR", "Staff", "Emp");
const std::string kEmpFull = "\nDECLARE TABLE \"SalesDB\".\"HR\".\"Staff\".\"Emp\" AS \"Emp\";\n";

TEST(ContainersTest, CatalogStatementsOfAllCatalogsInListingOrder) {
    Harness h(TwoCatalogs());
    ASSERT_TRUE(h.Request(kTIDACatalog, L"%", L"", L"", 1));
    EXPECT_EQ(kCatCRM + kCatHR, h.Text());
    const std::vector<std::string> calls = {"PrepareForCatalog(%)",  "Get(MICatalog)",
                                            "GetIsTavrinMetadata()", "Get(MICatalog)",
                                            "GetIsTavrinMetadata()", "Get(MICatalog)"};
    EXPECT_EQ(calls, h.import.Calls());
}

// Each request runs at level 1; the database, catalog and schema walks and the table statement
// each add a level.
TEST(ContainersTest, DepthLimitsMasksAndPatternsOfContainerRequests) {
    struct Case {
        TypeID type;
        const wchar_t* catalog;
        const wchar_t* schema;
        int limit;
        int mask;
        std::string expected;
    };
    const Case cases[] = {
        {kTIDADatabase, L"", L"", 1, kAll, ""},
        {kTIDADatabase, L"", L"", 2, kAll, kCatCRM + kCatHR},
        {kTIDADatabase, L"", L"", 3, kAll, kCatCRM + kCatHR + kSchSales + kSchStaff},
        {kTIDADatabase, L"", L"", 4, kAll, kCatCRM + kCatHR + kSchSales + kOrdersCut + kSchStaff + kEmpCut},
        {kTIDADatabase, L"", L"", -1, kAll,
         kCatCRM + kCatHR + kSchSales + kOrdersFull + kSchStaff + kEmpFull},
        {kTIDACatalog, L"%", L"", 1, kAll, kCatCRM + kCatHR},
        {kTIDACatalog, L"%", L"", 2, kAll, kCatCRM + kCatHR + kSchSales + kSchStaff},
        {kTIDACatalog, L"%", L"", 3, kAll, kCatCRM + kCatHR + kSchSales + kOrdersCut + kSchStaff + kEmpCut},
        {kTIDACatalog, L"CRM", L"%", 2, kAll, kCatCRM + kSchSales},
        {kTIDASchema, L"CRM", L"Sales", 1, kAll, kSchSales},
        {kTIDASchema, L"CRM", L"Sales", 2, kAll, kSchSales + kOrdersCut},
        {kTIDASchema, L"CRM", L"Sales", 3, kAll, kSchSales + kOrdersFull},
        // Cleared bits suppress their statements, never the walk beneath.
        {kTIDACatalog, L"%", L"", 2, kAll & ~0x0002, kSchSales + kSchStaff},
        {kTIDACatalog, L"%", L"", 3, kAll & ~0x0004, kCatCRM + kCatHR + kOrdersCut + kEmpCut},
        {kTIDASchema, L"CRM", L"Sales", -1, kAll & ~0x0008, kSchSales + " URI 'CRM.Sales.Orders';\n"},
        // A named catalog is declared even when the source lacks it.
        {kTIDACatalog, L"Nope", L"%", -1, kAll, "\nDECLARE CATALOG \"SalesDB\".\"Nope\" AS \"Nope\";\n"},
        // An empty catalog name lists every catalog but keeps the requested schema; CRM lists
        // no table for Staff, so the named schema is still declared there.
        {kTIDACatalog, L"", L"Staff", 2, kAll, kCatCRM + kCatHR + SchemaStmt("CRM", "Staff") + kSchStaff},
    };
    for (const Case& c : cases) {
        Harness h(TwoCatalogs());
        SCOPED_TRACE("type " + std::to_string(c.type) + " limit " + std::to_string(c.limit) + " mask " +
                     std::to_string(c.mask));
        ASSERT_TRUE(h.Request(c.type, c.catalog, c.schema, L"%", c.limit, c.mask));
        EXPECT_EQ(c.expected, h.Text());
        EXPECT_EQ(0, h.gen->m_nDepth);
    }
}

TEST(ContainersTest, SchemaStatementPlainAndWithWebServiceInputMessage) {
    // "C_M" is a search pattern to the source and also lists CAM's schema; the message comes from
    // the first record whose names are exactly the schema's.
    SourceMetadata source;
    source.schemas = {Schema(L"CAM", L"Sales", L"wrong"), Schema(L"C_M", L"Sales", L"<m a={1}/>"),
                      Schema(L"C_M", L"Sales", L"duplicate")};
    Harness plain(source);
    ASSERT_TRUE(plain.Request(kTIDASchema, L"C_M", L"Sales", L"%", 1));
    EXPECT_EQ(SchemaStmt("C_M", "Sales"), plain.Text());

    Harness ws(source, ServerInfo::kCLI_WS);
    ASSERT_TRUE(ws.Request(kTIDASchema, L"C_M", L"Sales", L"%", 1));
    EXPECT_EQ("\nDECLARE SCHEMA \"SalesDB\".\"C_M\".\"Sales\" AS \"Sales\"\n\tWS INPUTMSG{<m a=\\{1\\}/>};\n",
              ws.Text());
}

TEST(ContainersTest, TableBeyondTheLimitAndWithDepthToSpare) {
    SourceMetadata source = TwoCatalogs();
    AddIdColumnAndKey(source, {L"CRM", L"Sales", L"Orders"}, L"PK_O");
    source.foreignKeys = {ForeignKey({L"CRM", L"Sales", L"Orders"}, L"ID", L"Customers", L"FK_C", L"PK_C")};
    Harness h(source);
    ASSERT_TRUE(h.Request(kTIDATable, L"CRM", L"Sales", L"Orders", 1, kAll, L"CRM.Sales.Orders"));
    EXPECT_EQ(kOrdersCut, h.Text());
    EXPECT_EQ(std::vector<std::string>{"GetFeatures()"}, h.import.Calls());

    // Statement with its column list, then its key, then its foreign keys.
    h.out.clear();
    ASSERT_TRUE(h.Request(kTIDATable, L"CRM", L"Sales", L"Orders", 2, kAll, L"CRM.Sales.Orders"));
    const std::string column = "\"SalesDB\".\"CRM\".\"Sales\".\"Orders\".\"ID\"";
    EXPECT_EQ(
        kOrdersHead + "\n HAVING( \n    " + column +
            " AS \"ID\" TYPE INT PRECISION 10 SCALE 0 NOT NULLABLE VALUE TYPE  MAPPED COLUMN ''  MVLINK ''  "
            "DESCRIPTION {}\n ) URI 'CRM.Sales.Orders';\n"
            "\nDECLARE TABLE KEY \"SalesDB\".\"CRM\".\"Sales\".\"Orders\".\"PK_O\" AS \"PK_O\"\n HAVING ( " +
            column +
            " );\n"
            "\nDECLARE FOREIGN KEY \"SalesDB\".\"CRM\".\"Sales\".\"Orders\".\"FK_C\" AS \"FK_C\"\n HAVING "
            "( " +
            column + " )\n REFERENCES \"SalesDB\".\"CRM\".\"Sales\".\"Customers\".\"PK_C\";\n",
        h.Text());
}

TEST(ContainersTest, WholeSchemaWalkCollectsFirstThenWritesSchemasInCaseInsensitiveOrder) {
    SourceMetadata source;
    source.schemas = {Schema(L"CRM", L"Sales"), Schema(L"CRM", L"hr")};
    source.tables = {Table({L"CRM", L"Sales", L"Orders"}), Table({L"CRM", L"Sales", L"Items"})};
    Harness h(source);
    ASSERT_TRUE(h.Request(kTIDASchema, L"CRM", L"%", L"%", 2));
    const std::vector<std::string> calls = {
        "PrepareForSchema(CRM,%)",        "Get(MISchema)", "Get(MISchema)", "Get(MISchema)",
        "PrepareForTable(CRM,Sales,%,1)", "Get(MITable)",  "Get(MITable)",  "Get(MITable)",
        "PrepareForTable(CRM,hr,%,1)",    "Get(MITable)",  "GetFeatures()", "GetFeatures()"};
    EXPECT_EQ(calls, h.import.Calls());
    EXPECT_EQ(SchemaStmt("CRM", "hr") + kSchSales + CutTable("CRM", "Sales", "Orders") +
                  CutTable("CRM", "Sales", "Items"),
              h.Text());
}

TEST(ContainersTest, SchemaNamesDifferingInCaseGiveOneStatementAndForeignTablesAreSkipped) {
    SourceMetadata source;
    source.schemas = {Schema(L"CRM", L"Sales"), Schema(L"CRM", L"SALES"), Schema(L"CRM", L"S_x")};
    // The pattern "S_x" also lists Sax's table, which is not S_x's: S_x gets nothing at all.
    source.tables = {Table({L"CRM", L"SALES", L"B"}), Table({L"CRM", L"Sales", L"A"}),
                     Table({L"CRM", L"Sax", L"C"})};
    Harness h(source);
    ASSERT_TRUE(h.Request(kTIDASchema, L"CRM", L"%", L"%", 2));
    EXPECT_EQ(kSchSales + CutTable("CRM", "Sales", "A") + CutTable("CRM", "SALES", "B"), h.Text());
}

TEST(ContainersTest, SourcesWithoutCatalogsOrSchemasListTablesDirectly) {
    SourceMetadata bare;
    bare.tables = {Table({L"", L"dbo", L"T2"}), Table({L"", L"", L"T1"})};
    Harness h(bare);
    ASSERT_TRUE(h.Request(kTIDADatabase, L"", L"", L"", -1));
    EXPECT_EQ("\nDECLARE TABLE \"SalesDB\".\"\".\"\".\"T1\" AS \"T1\";\n"
              "\nDECLARE SCHEMA \"SalesDB\".\"\".\"dbo\" AS \"dbo\";\n"
              "\nDECLARE TABLE \"SalesDB\".\"\".\"dbo\".\"T2\" AS \"T2\";\n",
              h.Text());
    EXPECT_EQ(std::vector<std::string>{"PrepareForSchema(,%)"},
              h.import.CallsStartingWith("PrepareForSchema"));
    EXPECT_EQ(std::vector<std::string>{"PrepareForTable(,%,%,1)"},
              h.import.CallsStartingWith("PrepareForTable"));

    SourceMetadata noSchemas;
    noSchemas.catalogs = {Catalog(L"main")};
    noSchemas.tables = {Table({L"main", L"", L"T"})};
    Harness c(noSchemas);
    ASSERT_TRUE(c.Request(kTIDADatabase, L"", L"", L"", -1));
    EXPECT_EQ("\nDECLARE CATALOG \"SalesDB\".\"main\" AS \"main\";\n"
              "\nDECLARE TABLE \"SalesDB\".\"main\".\"\".\"T\" AS \"T\";\n",
              c.Text());
}

// Every other test runs without a gateway, where catalogs and schemas are written unchecked.
TEST(ContainersTest, ObjectsInTheRepositoryAreNotDeclaredAgainButStillWalked) {
    ARpGateway gateway;
    gateway.DeclareDatabase(L"SalesDB");
    gateway.DeclareObject(kTIDACatalog, QualifiedName{L"SalesDB", L"CRM"});
    gateway.DeclareObject(kTIDASchema, QualifiedName{L"SalesDB", L"HR", L"Staff"});
    gateway.DeclareObject(kTIDACatalog, QualifiedName{L"OtherDB", L"HR"});
    Harness h(TwoCatalogs(), ServerInfo::kCLI_ODBC350, &gateway);
    ASSERT_TRUE(h.Request(kTIDADatabase, L"", L"", L"", 4));
    EXPECT_EQ(kCatHR + kSchSales + kOrdersCut + kEmpCut, h.Text());
}

TEST(ContainersTest, ApplicationFrameworkTablesAreNotCacheableAndRemembered) {
    Harness h(TwoCatalogs(), ServerInfo::kCLI_ZEL_HTTP);
    ASSERT_TRUE(h.Request(kTIDATable, L"CRM", L"Sales", L"Orders", 1, kAll, L"u"));
    EXPECT_EQ(kOrdersHead + " NOT CACHEABLE NO INTERSECTION URI 'u';\n", h.Text());
    EXPECT_EQ(WyStringSet{L"Orders"}, h.gen->m_importedZelTableNames);

    // Without the table bit the name is not recorded, but the tail still says NOT CACHEABLE.
    h.out.clear();
    ASSERT_TRUE(h.Request(kTIDATable, L"HR", L"Staff", L"Emp", -1, kAll & ~0x0008));
    EXPECT_EQ(" NOT CACHEABLE;\n", h.Text());
    EXPECT_EQ(WyStringSet{L"Orders"}, h.gen->m_importedZelTableNames);
}

TEST(ContainersTest, WebServiceTableTextsComeFromTheFirstRecordOfExactlyTheTablesName) {
    MITable decoy = Table({L"CRM", L"Sales", L"OrdersX"});
    decoy.wsXSLT_ = L"decoy";
    MITable orders = Table({L"CRM", L"Sales", L"Orders"});
    orders.wsXSLT_ = L"<xsl/>";
    orders.wsxsd_ = L"{xsd}";
    MITable second = Table({L"CRM", L"Sales", L"Orders"});
    second.wsXSLT_ = L"second";
    MITable onlyXsd = Table({L"CRM", L"Sales", L"Items"});
    onlyXsd.wsxsd_ = L"x";
    SourceMetadata source;
    source.tables = {decoy, orders, second, onlyXsd};
    Harness h(source, ServerInfo::kCLI_WS);
    ASSERT_TRUE(h.Request(kTIDATable, L"CRM", L"Sales", L"Orders%", 1));
    EXPECT_EQ(CutTable("CRM", "Sales", "Orders%"), h.Text());

    h.out.clear();
    ASSERT_TRUE(h.Request(kTIDATable, L"CRM", L"Sales", L"Orders", 1));
    EXPECT_EQ(kOrdersHead + " NO INTERSECTION\n\tWS XSLT{<xsl/>}\n\tWS XSDSCHEMA{\\{xsd\\}};\n", h.Text());

    h.out.clear();
    ASSERT_TRUE(h.Request(kTIDATable, L"CRM", L"Sales", L"Items", 1));
    EXPECT_EQ("\nDECLARE TABLE \"SalesDB\".\"CRM\".\"Sales\".\"Items\" AS \"Items\" NO INTERSECTION\n\tWS "
              "XSDSCHEMA{x};\n",
              h.Text());
}

TEST(ContainersTest, PackagedApplicationCatalogWalkRecordsTableRemarksAsDescriptions) {
    SourceMetadata source;
    source.packagedApplication = true;
    source.catalogs = {Catalog(L"App")};
    source.tables = {Table({L"App", L"", L"Acct"}, L"", L"Accounts {all}"),
                     Table({L"App", L"", L"Acct"}, L"", L"later")};
    Harness h(source);
    ASSERT_TRUE(h.Request(kTIDADatabase, L"", L"", L"", 3));
    EXPECT_EQ("\nDECLARE CATALOG \"SalesDB\".\"App\" AS \"App\";\n", h.Text());
    const std::vector<std::string> head = {"PrepareForCatalog(%)", "Get(MICatalog)", "GetIsTavrinMetadata()",
                                           "PrepareForTable(App,,,1)"};
    EXPECT_EQ(head, std::vector<std::string>(h.import.Calls().begin(), h.import.Calls().begin() + 4));

    // Schema-less tables find their description under the catalog's name; the table is listed
    // twice and written twice, and the first remark recorded wins.
    h.out.clear();
    ASSERT_TRUE(h.Request(kTIDACatalog, L"App", L"%", L"%", 3));
    const std::string acct = "\nDECLARE TABLE \"SalesDB\".\"App\".\"\".\"Acct\" AS \"Acct\" NO INTERSECTION "
                             "DESCRIPTION {Accounts \\{all\\}};\n";
    EXPECT_EQ("\nDECLARE CATALOG \"SalesDB\".\"App\" AS \"App\";\n" + acct + acct, h.Text());
}

TEST(ContainersTest, TargetTypeZelV2ReadsDescriptionAndFlexfieldCode) {
    SourceMetadata source;
    source.targetType = kZelV2;
    MITable table = Table({L"CRM", L"", L"Orders"}, L"", L"All orders");
    table.effFlexfieldCode_ = L"FF1";
    source.tables = {table};
    Harness h(source);
    ASSERT_TRUE(h.Request(kTIDATable, L"CRM", L"", L"Orders", 1, kAll, L"CRM.Orders"));
    EXPECT_EQ(
        "\nDECLARE TABLE \"SalesDB\".\"CRM\".\"\".\"Orders\" AS \"Orders\" NO INTERSECTION DESCRIPTION {All "
        "orders} URI 'CRM.Orders' PROPERTIES ({EFF_FLEXFIELD_CODE} = {FF1});\n",
        h.Text());
    const std::vector<std::string> calls = {"GetFeatures()", "PrepareForTable(CRM,,Orders,1)", "Get(MITable)",
                                            "Get(MITable)"};
    EXPECT_EQ(calls, h.import.Calls());
}

TEST(ContainersTest, FailureInTheThirdSchemasTableListingKeepsWhatWasRead) {
    SourceMetadata source;
    source.schemas = {Schema(L"CRM", L"A"), Schema(L"CRM", L"B"), Schema(L"CRM", L"C")};
    source.tables = {Table({L"CRM", L"A", L"TA"}), Table({L"CRM", L"B", L"TB"}),
                     Table({L"CRM", L"C", L"TC1"}), Table({L"CRM", L"C", L"TC2"})};
    Harness h(source);
    // Table fetches 1-2 list A, 3-4 list B, 5 gives TC1 and 6 fails.
    h.import.FailAt("Get(MITable)", 6);
    h.error = L"untouched";
    ASSERT_TRUE(h.Request(kTIDASchema, L"CRM", L"%", L"%", 2));
    const std::string read = SchemaStmt("CRM", "A") + CutTable("CRM", "A", "TA") + SchemaStmt("CRM", "B") +
                             CutTable("CRM", "B", "TB") + SchemaStmt("CRM", "C") +
                             CutTable("CRM", "C", "TC1");
    EXPECT_EQ(read, h.Text());
    EXPECT_EQ(L"untouched", h.error);

    h.out.clear();
    ASSERT_TRUE(h.Request(kTIDASchema, L"CRM", L"%", L"%", 2));
    EXPECT_EQ(read + CutTable("CRM", "C", "TC2"), h.Text());
}

TEST(ContainersTest, FailureInTheCatalogListingWalksTheCatalogsAlreadyListed) {
    Harness h(TwoCatalogs());
    h.import.FailAt("Get(MICatalog)", 2);
    ASSERT_TRUE(h.Request(kTIDACatalog, L"%", L"", L"", 2));
    EXPECT_EQ(kCatCRM + kSchSales, h.Text());
}

TEST(ContainersTest, FailureWhileWritingASchemaReachesTheRequest) {
    SourceMetadata source;
    source.schemas = {Schema(L"CRM", L"A", L"a"), Schema(L"CRM", L"B", L"b")};
    Harness h(source, ServerInfo::kCLI_WS);
    // The first schema listing collects; the third looks up B's input message.
    h.import.FailAt("PrepareForSchema(", 3, {L"M1", L"M2"});
    EXPECT_FALSE(h.Request(kTIDASchema, L"CRM", L"%", L"%", -1));
    EXPECT_EQ("\nDECLARE SCHEMA \"SalesDB\".\"CRM\".\"A\" AS \"A\"\n\tWS INPUTMSG{a};\n"
              "\nDECLARE SCHEMA \"SalesDB\".\"CRM\".\"B\" AS \"B\"",
              h.Text());
    EXPECT_EQ(L"M1\nM2\n", h.error);
    EXPECT_EQ(0, h.gen->m_nDepth);
}

TEST(ContainersTest, BatchWritesOneBundlePerNameInSetOrderAndRestoresTheSink) {
    SourceMetadata source;
    source.tables = {Table({L"CRM", L"Sales", L"alpha"}), Table({L"CRM", L"Sales", L"beta"}),
                     Table({L"CRM", L"Sales", L"gamma"})};
    AddIdColumnAndKey(source, {L"CRM", L"Sales", L"alpha"}, L"PK_A");
    Harness h(source);
    h.gen->m_strCatalog = L"CRM";
    h.gen->m_strSchema = L"Sales";
    h.gen->m_fGenerate = 0x0040;
    h.gen->m_bUseExistingStructs = true; // with no keys handed in: alpha's key shows it was reset
    h.out = L"host text";

    WyStringSet names = {L"beta", L"alpha", L"gamma"};
    TableUDMLVector bundles(1);
    bundles[0].tableName = L"earlier";
    h.gen->GenerateTableUdml(names, bundles);

    ASSERT_EQ(4u, bundles.size());
    EXPECT_EQ(L"earlier", bundles[0].tableName);
    EXPECT_EQ(L"alpha", bundles[1].tableName);
    EXPECT_EQ(L"beta", bundles[2].tableName);
    EXPECT_EQ(L"gamma", bundles[3].tableName);
    const std::string alpha = "\"SalesDB\".\"CRM\".\"Sales\".\"alpha\"";
    EXPECT_EQ("\nDECLARE TABLE " + alpha + " AS \"alpha\"\n HAVING( \n    " + alpha +
                  ".\"ID\" AS \"ID\" TYPE INT PRECISION 10 SCALE 0 NOT NULLABLE VALUE TYPE  MAPPED COLUMN '' "
                  " MVLINK "
                  "''  DESCRIPTION {}\n );\n\nDECLARE TABLE KEY " +
                  alpha + ".\"PK_A\" AS \"PK_A\"\n HAVING ( " + alpha + ".\"ID\" );\n",
              Utf8(bundles[1].udml));
    EXPECT_EQ(1u, bundles[1].columns.size());
    EXPECT_EQ(1u, bundles[1].primaryKeys.size());
    EXPECT_EQ("\nDECLARE TABLE \"SalesDB\".\"CRM\".\"Sales\".\"gamma\" AS \"gamma\";\n",
              Utf8(bundles[3].udml));
    EXPECT_TRUE(bundles[3].columns.empty());

    EXPECT_EQ("host text", h.Text());
    EXPECT_EQ(CUdmlGenerator::oString, h.gen->m_nOutputType);
    EXPECT_EQ(&h.out, h.gen->m_pstrOutput);
    EXPECT_EQ(kAll, h.gen->m_fGenerate);
    EXPECT_FALSE(h.gen->m_bUseExistingStructs);
}

TEST(ContainersTest, BatchEndsSilentlyAtAFailureAndKeepsTheFinishedBundles) {
    SourceMetadata source;
    source.tables = {Table({L"CRM", L"Sales", L"alpha"}), Table({L"CRM", L"Sales", L"beta"}),
                     Table({L"CRM", L"Sales", L"gamma"})};
    Harness h(source, ServerInfo::kCLI_WS);
    h.gen->m_strCatalog = L"CRM";
    h.gen->m_strSchema = L"Sales";
    h.gen->SetOuputStdOut();
    h.import.FailAt("PrepareForTable(", 2); // the web-service look-up of beta
    WyStringSet names = {L"gamma", L"beta", L"alpha"};
    TableUDMLVector bundles;
    h.gen->GenerateTableUdml(names, bundles);
    ASSERT_EQ(1u, bundles.size());
    EXPECT_EQ(L"alpha", bundles[0].tableName);
    EXPECT_EQ(CUdmlGenerator::oStdOut, h.gen->m_nOutputType);
    EXPECT_EQ(&h.out, h.gen->m_pstrOutput);
    EXPECT_EQ(0, h.gen->m_nDepth);
    EXPECT_TRUE(h.import.CallsStartingWith("PrepareForTable(CRM,Sales,gamma").empty());

    // An empty set appends nothing but still takes the batch's settings.
    h.gen->m_fGenerate = 0;
    WyStringSet none;
    h.gen->GenerateTableUdml(none, bundles);
    EXPECT_EQ(1u, bundles.size());
    EXPECT_EQ(kAll, h.gen->m_fGenerate);
}

} // namespace
