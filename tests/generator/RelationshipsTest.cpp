// Foreign-key statements and their collection, the view-link restriction by application module,
// and the join statements written from view links.
#include "tests/support/FakeImport.h"
#include "tests/support/SourceBuilder.h"
#include "tests/support/TestGenerator.h"

#include <gtest/gtest.h>

namespace {

MIForeignKey Fk(const WyString& pkTable, const WyString& fkColumn, const WyString& name = L"",
                const WyString& pkName = L"", const WyString& fkTable = L"ORDERS") {
    return ForeignKey({L"SALES", L"DBO", fkTable}, fkColumn, pkTable, name, pkName);
}

// The names after " AS \"" of collected foreign-key statements.
std::vector<WyString> KeyNames(const WyStringVector& statements) {
    std::vector<WyString> names;
    for (const WyString& text : statements) {
        const size_t start = text.find(L" AS \"") + 5;
        names.push_back(text.substr(start, text.find(L'"', start) - start));
    }
    return names;
}

const WyString kCustomerKey = LR"(
DECLARE FOREIGN KEY "Warehouse"."SALES"."DBO"."ORDERS"."FK_ORD_CUST" AS "FK_ORD_CUST"
 HAVING ( "Warehouse"."SALES"."DBO"."ORDERS"."CUST_ID" )
 REFERENCES "Warehouse"."SALES"."DBO"."CUSTOMERS"."PK_CUSTOMERS";
)";
const WyString kProductKey = LR"(
DECLARE FOREIGN KEY "Warehouse"."SALES"."DBO"."ORDERS"."FK_ORDERS_PRODUCTS" AS "FK_ORDERS_PRODUCTS"
 HAVING ( "Warehouse"."SALES"."DBO"."ORDERS"."PROD_ID", "Warehouse"."SALES"."DBO"."ORDERS"."PROD_VER" )
 REFERENCES "Warehouse"."SALES"."DBO"."PRODUCTS"."PK_PRODUCTS";
)";

class ForeignKeyTest : public ::testing::Test {
protected:
    void Start(MIForeignKeyVector keys, const WyString& table = L"ORDERS", SourceMetadata metadata = {}) {
        metadata.foreignKeys = std::move(keys);
        import = std::make_unique<FakeImport>(std::move(metadata));
        generator = TestGenerator::Over(import.get(), &out, L"Warehouse");
        generator->m_strCatalog = L"SALES";
        generator->m_strSchema = L"DBO";
        generator->m_strTable = table;
    }
    MIForeignKeyVector Example() {
        return {Fk(L"CUSTOMERS", L"CUST_ID", L"FK_ORD_CUST", L"PK_CUSTOMERS"), Fk(L"PRODUCTS", L"PROD_ID"),
                Fk(L"PRODUCTS", L"PROD_VER")};
    }

    WyString out;
    std::unique_ptr<FakeImport> import;
    std::unique_ptr<TestGenerator> generator;
};

TEST_F(ForeignKeyTest, GroupsRowsIntoStatementsWithDefaultNames) {
    Start(Example());
    generator->GenerateForeignKeyUdml(L"");
    EXPECT_EQ(out, kCustomerKey + kProductKey);
    EXPECT_EQ(import->CallsStartingWith("PrepareForForeignKey"),
              std::vector<std::string>{"PrepareForForeignKey(,,,SALES,DBO,ORDERS)"});
}

TEST_F(ForeignKeyTest, SelfReferenceLeavesAnEmptyStatementInEverySink) {
    MIForeignKeyVector keys = Example();
    keys.push_back(Fk(L"orders", L"PARENT_ID", L"FK_ORD_PARENT"));
    Start(keys);
    VirtualTable table;
    generator->SetOuput(&table);
    generator->GenerateForeignKeyUdml(L"");
    ASSERT_EQ(table.Records().size(), 3u);
    EXPECT_EQ(table.Records()[2], "");

    WyStringVector collected{L"earlier text"};
    ASSERT_TRUE(generator->GenerateForeignKeys(L"SALES", L"DBO", L"ORDERS", L"", &collected));
    EXPECT_EQ(collected, (WyStringVector{L"earlier text", kCustomerKey, kProductKey, L""}));
    EXPECT_EQ(generator->m_parrayForeignKeys, nullptr);
    EXPECT_EQ(generator->GetOutputType(), CUdmlGenerator::oNothing);
    EXPECT_EQ(table.Records().size(), 3u);
}

TEST_F(ForeignKeyTest, NamesRunsByAdjacencyAndRenamesReturningDeliveredNames) {
    // A delivered name that comes back is made unique; a made-up name is repeated as it is.
    Start({Fk(L"P", L"C1", L"A"), Fk(L"P", L"C2", L"B"), Fk(L"P", L"C3", L"A"), Fk(L"P", L"C4", L"A"),
           Fk(L"Q", L"C5", L"B"), Fk(L"P", L"C6"), Fk(L"Q", L"C7"), Fk(L"P", L"C8"), Fk(L"P", L"C9"),
           Fk(L"P", L"C10", L"X"), Fk(L"Q", L"C11", L"X")});
    WyStringVector collected;
    ASSERT_TRUE(generator->GenerateForeignKeys(L"SALES", L"DBO", L"ORDERS", L"", &collected));
    EXPECT_EQ(KeyNames(collected), (std::vector<WyString>{L"A", L"B", L"A_1", L"A_2", L"B_1", L"FK_ORDERS_P",
                                                          L"FK_ORDERS_Q", L"FK_ORDERS_P", L"X", L"X_1"}));
    EXPECT_NE(collected[7].find(LR"("C8", "Warehouse"."SALES"."DBO"."ORDERS"."C9" ))"), WyString::npos);
}

TEST_F(ForeignKeyTest, NameFilterSelectsDeliveredNamesExactly) {
    Start({Fk(L"P", L"C1", L"fk_a"), Fk(L"P", L"C2", L"FK_A"), Fk(L"P", L"C3"), Fk(L"P", L"C4", L"FK_A")});
    generator->GenerateForeignKeyUdml(L"FK_A");
    EXPECT_EQ(out, LR"(
DECLARE FOREIGN KEY "Warehouse"."SALES"."DBO"."ORDERS"."FK_A" AS "FK_A"
 HAVING ( "Warehouse"."SALES"."DBO"."ORDERS"."C2", "Warehouse"."SALES"."DBO"."ORDERS"."C4" )
 REFERENCES "Warehouse"."SALES"."DBO"."P"."PK_P";
)");
    out.clear();
    generator->GenerateForeignKeyUdml(L"FK_ORDERS_P");
    EXPECT_EQ(out, L"");
}

TEST_F(ForeignKeyTest, BaseTableIsFetchedButOutputIsNamedAfterTheSynonym) {
    Start({Fk(L"ORDERS_BASE", L"PARENT", L"FK_SELF", L"", L"ORDERS_BASE")}, L"ORDERS_SYN");
    generator->m_strBaseTable = L"ORDERS_BASE";
    generator->GenerateForeignKeyUdml(L"");
    EXPECT_EQ(import->Calls().front(), "PrepareForForeignKey(,,,SALES,DBO,ORDERS_BASE)");
    EXPECT_EQ(out, LR"(
DECLARE FOREIGN KEY "Warehouse"."SALES"."DBO"."ORDERS_SYN"."FK_SELF" AS "FK_SELF"
 HAVING ( "Warehouse"."SALES"."DBO"."ORDERS_BASE"."PARENT" )
 REFERENCES "Warehouse"."SALES"."DBO"."ORDERS_BASE"."PK_ORDERS_BASE";
)");
}

TEST_F(ForeignKeyTest, FailureMidFetchKeepsFinishedStatementsAndRestoresTheSink) {
    MIForeignKeyVector keys = Example();
    keys.push_back(Fk(L"CUSTOMERS", L"ALT_ID", L"FK_ALT"));
    Start(keys);
    import->FailAt("Get(MIForeignKey)", 3);
    WyString error;
    EXPECT_TRUE(generator->GenerateUdml(kTIDAForeignKey, L"SALES", L"DBO", L"ORDERS", L"", L"", L"", L"",
                                        error, -1, 0xffff, false));
    EXPECT_EQ(error, L"");
    EXPECT_EQ(out, kCustomerKey);
    EXPECT_EQ(generator->m_pstrOutput, &out);
    EXPECT_EQ(generator->m_nOutputType, CUdmlGenerator::oString);

    // The same generator serves the next request in full.
    out.clear();
    generator->GenerateForeignKeyUdml(L"");
    EXPECT_EQ(out.find(kCustomerKey + kProductKey), 0u);
    EXPECT_NE(out.find(L"\"FK_ALT\" AS"), WyString::npos);
}

TEST_F(ForeignKeyTest, CollectingEveryTableFollowsTheWalk) {
    MIForeignKeyVector keys = Example();
    keys.push_back(Fk(L"ORDERS", L"ORDER_ID", L"FK_LINE_ORDER", L"", L"LINES"));
    SourceMetadata metadata;
    metadata.catalogs = {Catalog(L"SALES")};
    metadata.tables = {Table({L"SALES", L"DBO", L"ORDERS"}), Table({L"SALES", L"DBO", L"LINES"})};
    Start(keys, L"ORDERS", metadata);
    WyStringVector collected{L"kept"};
    ASSERT_TRUE(generator->GenerateAllForeignKeys(&collected));
    ASSERT_EQ(collected.size(), 4u);
    EXPECT_EQ(collected[1], kCustomerKey);
    EXPECT_EQ(KeyNames(collected).back(), L"FK_LINE_ORDER");
    EXPECT_EQ(out, L"");

    Start({});
    collected = {L"kept"};
    EXPECT_TRUE(generator->GenerateAllForeignKeys(&collected));
    EXPECT_EQ(collected, WyStringVector{L"kept"});
}

// ---------------------------------------------------------------------------------------------

TEST(ViewLinkRestrictionTest, ModulesAdmitViewObjectsByNamePrefixIgnoringCase) {
    ARpGateway gateway;
    DatabasePropertiesTableMap& categories = gateway.DeclareDatabase(L"AppDB").PropertyCategories();
    categories[L"HR"].SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, L"hrempview;;HRDeptView;");
    categories[L"Payroll"].SetProperty(L"OTHER", L"HREmpView");
    categories[L"Shared"].SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, L"SharedCodeView");
    categories[L"Fin"].SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, L"SharedCodeView");
    categories[L"Ops"].SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, L"LoneView");
    ViewLinkRestrictHelper helper(&gateway, L"AppDB");
    auto prohibited = [&](const WyString& source, const WyString& destination) {
        MIViewLink link;
        link.source_ = source;
        link.destination_ = destination;
        return helper.IsViewLinkProhibited(link);
    };
    EXPECT_FALSE(prohibited(L"HREmpView", L"HRDeptView"));
    EXPECT_TRUE(prohibited(L"HREmpView", L"PayrollCheckView"));
    EXPECT_TRUE(prohibited(L"PayrollCheckView", L"HRDeptView"));
    EXPECT_FALSE(prohibited(L"PayrollCheckView", L"OtherView"));
    EXPECT_FALSE(prohibited(L"HREmpView", L"hrArchiveView"));
    EXPECT_FALSE(prohibited(L"", L"OtherView")); // empty pieces restrict nothing
    EXPECT_FALSE(prohibited(L"SharedCodeView", L"FinLedgerView"));
    EXPECT_FALSE(prohibited(L"SharedCodeView", L"SharedCodeView"));
    EXPECT_TRUE(prohibited(L"LoneView", L"LoneView"));
    EXPECT_TRUE(prohibited(L"SharedCodeView", L"HRDeptView"));

    // Read once per helper: a later change is seen by the next helper only.
    categories[L"HR"].SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, L"");
    EXPECT_TRUE(prohibited(L"HREmpView", L"PayrollCheckView"));
    EXPECT_FALSE(ViewLinkRestrictHelper(&gateway, L"AppDB")
                     .IsViewLinkProhibited(MIViewLink{L"", L"HREmpView", L"PayrollCheckView", 0, {}, {}}));
    EXPECT_FALSE(ViewLinkRestrictHelper(&gateway, L"Other")
                     .IsViewLinkProhibited(MIViewLink{L"", L"SharedCodeView", L"X", 0, {}, {}}));
    EXPECT_FALSE(ViewLinkRestrictHelper(nullptr, L"AppDB")
                     .IsViewLinkProhibited(MIViewLink{L"", L"SharedCodeView", L"X", 0, {}, {}}));
}

// ---------------------------------------------------------------------------------------------

MIViewLink Link(const WyString& name, const WyString& source, const WyString& destination, uint16 cardinality,
                WyStringVector sourceColumns = {}, WyStringVector destinationColumns = {}) {
    return MIViewLink{
        name, source, destination, cardinality, std::move(sourceColumns), std::move(destinationColumns)};
}

WyString JoinHead(const WyString& join, const WyString& link, const WyString& source, const WyString& dest) {
    const WyString path = L"\"AppDB\".\"AppCat\".\"AppModel\".\"";
    return L"\nDECLARE JOIN \"" + join + L"\" AS \"" + join + L"\" EXTERNAL \"" + link + L"\" ON TABLES (" +
           path + dest + L"\", " + path + source + L"\") AS {} ";
}

const WyString kEmpDeptJoin = LR"(
DECLARE JOIN "EmpView_DeptView" AS "EmpView_DeptView" EXTERNAL "EmpDeptLink" ON TABLES ("AppDB"."AppCat"."AppModel"."DeptView", "AppDB"."AppCat"."AppModel"."EmpView") AS {} MANY TO ONE
EXTERNAL EXPRESSION {"AppDB"."AppCat"."AppModel"."EmpView"."DeptId" = "AppDB"."AppCat"."AppModel"."DeptView"."Id"
AND
"AppDB"."AppCat"."AppModel"."EmpView"."LocId" = "AppDB"."AppCat"."AppModel"."DeptView"."LocId"};)";

class ViewLinkTest : public ::testing::Test {
protected:
    void Start(MIViewLinkVector links) {
        SourceMetadata metadata;
        metadata.viewLinks = std::move(links);
        import = std::make_unique<FakeImport>(std::move(metadata));
        generator = TestGenerator::Over(import.get(), &out, L"AppDB", ServerInfo::kCLI_ZEL_HTTP, &gateway);
        generator->m_strCatalog = L"AppCat";
        generator->m_strSchema = L"AppModel";
        generator->m_importedZelTableNames = {L"EmpView"};
    }
    QualifiedName Table(const WyString& name) { return {L"AppDB", L"AppCat", L"AppModel", name}; }
    void DeclareTables(std::initializer_list<const wchar_t*> names) {
        for (const wchar_t* name : names) {
            gateway.DeclareObject(kTIDATable, Table(name));
            tables.insert(name);
        }
    }
    MIViewLink EmpDept() {
        return Link(L"EmpDeptLink", L"EmpView", L"DeptView", k_Many_To_One, {L"DeptId", L"LocId"},
                    {L"Id", L"LocId"});
    }

    ARpGateway gateway;
    WyStringSet tables;
    WyString out;
    std::unique_ptr<FakeImport> import;
    std::unique_ptr<TestGenerator> generator;
};

TEST_F(ViewLinkTest, WritesOneJoinPerPairOfViewObjects) {
    DeclareTables({L"EmpView", L"DeptView"});
    Start({EmpDept(), Link(L"DeptEmpLink", L"DeptView", L"EmpView", k_One_To_Many, {L"Id"}, {L"DeptId"}),
           Link(L"Again", L"EmpView", L"DeptView", k_One_To_One)});
    EXPECT_TRUE(generator->GenerateViewLinks(tables, {}, {}));
    EXPECT_EQ(out, kEmpDeptJoin);
    EXPECT_EQ(import->Calls(),
              (std::vector<std::string>{"PrepareForViewLink()", "Get(MIViewLink)", "Get(MIViewLink)",
                                        "Get(MIViewLink)", "Get(MIViewLink)"}));
}

TEST_F(ViewLinkTest, JoinNamesAvoidExistingAndEarlierNames) {
    // The third link's own name is the one the first link was given.
    DeclareTables({L"EmpView", L"DeptView", L"EmpView_DeptView_0", L"1"});
    Start({Link(L"L1", L"EmpView", L"DeptView", k_One_To_Many),
           Link(L"L2", L"DeptView", L"EmpView", k_One_To_One),
           Link(L"L3", L"EmpView_DeptView_0", L"1", k_Many_To_Many)});
    generator->m_importedZelTableNames = {L"EmpView", L"1"};
    EXPECT_TRUE(generator->GenerateViewLinks(tables, {L"EmpView_DeptView"}, {L"EmpView_DeptView_0"}));
    EXPECT_EQ(out, JoinHead(L"EmpView_DeptView_0_1", L"L1", L"EmpView", L"DeptView") + L"ONE TO MANY;" +
                       JoinHead(L"EmpView_DeptView_0_1_0", L"L3", L"EmpView_DeptView_0", L"1") +
                       L"MANY TO MANY;");
}

TEST_F(ViewLinkTest, SkipsLinksTheDatabaseOrRepositoryRules) {
    DeclareTables({L"EmpView", L"DeptView", L"LocView", L"JobView", L"HRView"});
    gateway.DeclareComplexJoin(L"Existing", Table(L"LocView"), Table(L"EmpView"));
    DatabasePropertiesTableMap& categories = gateway.DeclareDatabase(L"AppDB").PropertyCategories();
    categories[L"HR"].SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, L"HRView");
    tables.insert(L"GhostView"); // listed by the host, unknown to the repository
    Start({Link(L"Outside", L"EmpView", L"deptview", k_One_To_One),
           Link(L"Joined", L"EmpView", L"LocView", 0), Link(L"Ghost", L"EmpView", L"GhostView", 0),
           Link(L"Restricted", L"EmpView", L"HRView", 0), Link(L"NotMine", L"DeptView", L"JobView", 0),
           Link(L"Kept", L"JobView", L"EmpView", 3)});
    EXPECT_TRUE(generator->GenerateViewLinks(tables, {}, {}));
    EXPECT_EQ(out, JoinHead(L"JobView_EmpView", L"Kept", L"JobView", L"EmpView") + L";");

    // Given as a list, links are not checked against the tables this generator declared.
    out.clear();
    generator->SetMIViewLinks({Link(L"NotMine", L"DeptView", L"JobView", 0)});
    EXPECT_TRUE(generator->GenerateViewLinks(tables, {}, {}));
    EXPECT_EQ(out, JoinHead(L"DeptView_JobView", L"NotMine", L"DeptView", L"JobView") + L"ONE TO ONE;");
    EXPECT_EQ(import->CallsStartingWith("PrepareForViewLink").size(), 1u);

    // Without a repository no table is known, so nothing is joined.
    out.clear();
    generator->setRpGateway(nullptr);
    EXPECT_TRUE(generator->GenerateViewLinks(tables, {}, {}));
    EXPECT_EQ(out, L"");
}

TEST_F(ViewLinkTest, UnequalColumnListsAreReportedAndTheJoinClosed) {
    DeclareTables({L"EmpView", L"DeptView", L"JobView"});
    Start({});
    std::vector<std::pair<WyString, int>> reports;
    WyAssert::SetLogicErrorSink([&](const wchar_t* file, int line, const WyString& message) {
        reports.emplace_back(WyString(file) + L"|" + message, line);
    });
    generator->SetMIViewLinks({Link(L"Bad", L"EmpView", L"DeptView", k_Many_To_One, {L"A", L"B"}, {L"X"}),
                               Link(L"Good", L"JobView", L"EmpView", 99, {L"E"}, {L"J"})});
    const bool result = generator->GenerateViewLinks(tables, {}, {});
    WyAssert::SetLogicErrorSink(nullptr);
    EXPECT_TRUE(result);
    EXPECT_EQ(reports, (std::vector<std::pair<WyString, int>>{
                           {L"server/Metadata/UDMLOdbcGen/Src/SMUOdbcGenerator|", 1985}}));
    EXPECT_EQ(out, JoinHead(L"EmpView_DeptView", L"Bad", L"EmpView", L"DeptView") + L"MANY TO ONE;" +
                       JoinHead(L"JobView_EmpView", L"Good", L"JobView", L"EmpView") + LR"(
EXTERNAL EXPRESSION {"AppDB"."AppCat"."AppModel"."JobView"."E" = "AppDB"."AppCat"."AppModel"."EmpView"."J"};)");
}

TEST_F(ViewLinkTest, FailureAbortAndMissingSourceEndTheCallWithFalse) {
    DeclareTables({L"EmpView", L"DeptView", L"JobView"});
    Start({EmpDept(), Link(L"L2", L"JobView", L"EmpView", 0)});
    import->FailAt("Get(MIViewLink)", 2);
    EXPECT_FALSE(generator->GenerateViewLinks(tables, {}, {}));
    EXPECT_EQ(out, kEmpDeptJoin);

    out.clear();
    generator->Abort();
    EXPECT_FALSE(generator->GenerateViewLinks(tables, {}, {}));
    generator->m_bAbort = false;
    generator->SetMIViewLinks({EmpDept()});
    generator->SetImport(nullptr);
    EXPECT_FALSE(generator->GenerateViewLinks(tables, {}, {}));
    EXPECT_EQ(out, L"");
}

} // namespace
