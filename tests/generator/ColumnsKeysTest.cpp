// Column bodies, column lists, stand-alone columns, pick-list correction and table keys, pinned as
// whole statements, plus the failures that must leave exactly the text written so far.
#include "support/FakeImport.h"
#include "support/SourceBuilder.h"
#include "support/TestGenerator.h"

#include <gtest/gtest.h>

namespace {

const TablePath kAcct{L"", L"SALES", L"ACCT"};
const TablePath kEmp{L"", L"HR", L"EMP"};

// The ACCT table of the column examples: ID and NAME.
SourceMetadata AcctSource() {
    SourceMetadata source;
    source.columns = {Column(kAcct, L"ID", WyInt4Data, 10, 0),
                      Column(kAcct, L"NAME", WyVarCharData, 50, 1, L"Account name")};
    return source;
}

const WyString kIdBody =
    L"\"SRC\".\"\".\"SALES\".\"ACCT\".\"ID\" AS \"ID\" TYPE INT PRECISION 10 SCALE 0 NOT "
    L"NULLABLE VALUE TYPE  MAPPED COLUMN ''  MVLINK ''  DESCRIPTION {}";
const WyString kNameBody =
    L"\"SRC\".\"\".\"SALES\".\"ACCT\".\"NAME\" AS \"NAME\" TYPE VARCHAR PRECISION 50 SCALE 0 "
    L"NULLABLE VALUE TYPE  MAPPED COLUMN ''  MVLINK ''  DESCRIPTION {Account name}";
const WyString kIdList = L"\n HAVING( \n    " + kIdBody + L", \n    " + kNameBody + L"\n )";

class ColumnsKeysTest : public ::testing::Test {
protected:
    void Use(SourceMetadata source, const WyString& schema = L"SALES", const WyString& table = L"ACCT") {
        import = std::make_unique<FakeImport>(std::move(source));
        out.clear();
        gen = TestGenerator::Over(import.get(), &out);
        gen->m_strSchema = schema;
        gen->m_strTable = table;
    }
    // The body of one column written on its own.
    WyString Body(const MIColumn& column) {
        out.clear();
        gen->GenerateColumnInfoUdml(column);
        return out;
    }
    bool Request(TypeID type, const WyString& table, const WyString& column = L"") {
        WyString error;
        return gen->GenerateUdml(type, L"", gen->m_strSchema, table, L"", column, L"", L"", error, -1, 0xffff,
                                 false);
    }

    std::unique_ptr<FakeImport> import;
    std::unique_ptr<TestGenerator> gen;
    WyString out;
};

TEST_F(ColumnsKeysTest, BodiesOfThePickListAndPlainExamples) {
    SourceMetadata eai;
    eai.eai = true;
    Use(eai);
    MIColumn account = Column(kAcct, L"Account Type", WyVarCharData, 30, 1, L"Kind of account");
    account.fullyQualifiedName_ = L"Account.Type";
    account.userName_ = L"ignored";
    account.picklistName = L"PickList Account Type";
    account.pickListFieldName = {{L"Account Type", L"Value"}};
    EXPECT_EQ(Body(account),
              L"\"SRC\".\"\".\"SALES\".\"ACCT\".\"Account Type\" AS \"Account Type\" EXTERNAL "
              L"{Account.Type} TYPE VARCHAR PRECISION 30 SCALE 0 NULLABLE VALUE TYPE  MANY TO ONE  "
              L"MAPPED COLUMN 'Value'  MVLINK '' \n PICKLIST (\n\"SRC\".\"\".\"SALES\".\"ACCT\"."
              L"\"Account Type\" )  DESCRIPTION {Kind of account}");

    // Multi-valued wins the value type and the mapped column; the pick list is still declared.
    account.multiValued = 1;
    account.DEST_FLD_NAME = L"Dest";
    account.inputParam_ = true;
    EXPECT_NE(Body(account).find(L"VALUE TYPE  MANY TO MANY  MAPPED COLUMN 'Dest'  MVLINK '' \n PICKLIST ("),
              WyString::npos);
    EXPECT_NE(out.find(L" )  INPUTPARAM  DESCRIPTION"), WyString::npos);

    // Entries without field names do not make a pick list.
    account.multiValued = 0;
    account.pickListFieldName = {{L"", L"Value"}};
    EXPECT_EQ(Body(account).find(L"PICKLIST"), WyString::npos);
    EXPECT_EQ(out.find(L"MANY TO ONE"), WyString::npos);

    // Outside EAI mode: no pick list, yet a matching entry still maps the column.
    Use(SourceMetadata());
    MIColumn id = Column(kAcct, L"ID", WyInt4Data, 10, 0);
    EXPECT_EQ(Body(id), kIdBody);
    id.pickListFieldName = {{L"ID", L"Code"}};
    id.picklistName = L"P";
    EXPECT_NE(Body(id).find(L"VALUE TYPE  MAPPED COLUMN 'Code'  MVLINK ''  DESCRIPTION"), WyString::npos);

    gen->m_bAbort = true;
    EXPECT_EQ(Body(id), L"");
}

TEST_F(ColumnsKeysTest, TypeNamesFollowTheRepositoryTable) {
    Use(SourceMetadata());
    auto typesOf = [&](std::initializer_list<int> types) {
        WyString names;
        for (int type : types) {
            const WyString body = Body(Column(kAcct, L"C", static_cast<WyDataType>(type), 1, 0));
            const size_t start = body.find(L" TYPE ") + 6;
            names += body.substr(start, body.find(L' ', start) - start) + L" ";
        }
        return names;
    };
    EXPECT_EQ(
        typesOf({WyBitData, WyLongVarBinaryData, WyUInt1Data, WyUInt2Data, WyInt4Data, WyUInt4Data,
                 WyMoneyData, WyDateData, WyDateTimeData, WyBoolean, WyUnknown, WyMaxType, -1, 99,
                 WyNumericData, WyDecimalData}),
        L"BIT LONGVARBINARY TINYINT SMALLINT INT UINT UNKNOWN DATETYPE DATETIME BOOLEAN UNKNOWN UNKNOWN "
        L"UNKNOWN UNKNOWN NUMERIC NUMERIC ");
    SUSystemConfig::GetSystemConfig().SetNumericAsDouble(true);
    EXPECT_EQ(typesOf({WyNumericData, WyDecimalData, WyFloatData}), L"DOUBLE DOUBLE FLOAT ");
    SUSystemConfig::GetSystemConfig().SetNumericAsDouble(false);
}

TEST_F(ColumnsKeysTest, PropertyClause) {
    Use(SourceMetadata());
    MIColumn column = Column(kAcct, L"C", WyCharData, 1, 1);
    column.effColumnProperties_ = L"k,v";
    EXPECT_EQ(Body(column).find(L"PROPERTIES"), WyString::npos) << "column properties need an EFF context";

    column.isHidden_ = true;
    EXPECT_NE(Body(column).find(L"MVLINK ''  PROPERTIES ({IS_HIDDEN} = {true}) DESCRIPTION {}"),
              WyString::npos);

    // Resource ids are numbered from the second token; a trailing key without a value is dropped,
    // and a column property replaces an entry of the same key.
    column.effContextName_ = L"ctx,r0,r1";
    column.effColumnProperties_ = L"IS_HIDDEN,no,k1,v1,k2";
    EXPECT_NE(Body(column).find(L"MVLINK ''  PROPERTIES ({EFF_ATTR_CATEGORY_RESID_0} = {r0}, "
                                L"{EFF_ATTR_CATEGORY_RESID_1} = {r1}, {EFF_CONTEXT_NAME} = {ctx}, "
                                L"{IS_HIDDEN} = {no}, {k1} = {v1}) DESCRIPTION {}"),
              WyString::npos)
        << Utf8(out);
}

TEST_F(ColumnsKeysTest, ColumnListThenCachedStandAloneColumns) {
    Use(AcctSource());
    MIColumnVector copies;
    gen->GenerateTableColumnUdml(&copies);
    EXPECT_EQ(out, kIdList);
    EXPECT_EQ(gen->m_checkColumnVector, WyStringVector({L"ID", L"NAME"}));
    ASSERT_EQ(copies.size(), 2u);
    EXPECT_EQ(import->CallsStartingWith("PrepareForColumn"),
              std::vector<std::string>{"PrepareForColumn(,SALES,ACCT,%)"});

    // Two stand-alone requests of the same table read the source once; NAME is checked again.
    import->ClearCalls();
    out.clear();
    ASSERT_TRUE(Request(kTIDAColumn, L"ACCT", L"NAME"));
    EXPECT_EQ(out, L"\nDECLARE COLUMN " + kNameBody + L";\n");
    ASSERT_TRUE(Request(kTIDAColumn, L"ACCT", L"ID"));
    EXPECT_EQ(out, L"\nDECLARE COLUMN " + kNameBody + L";\n\nDECLARE COLUMN " + kIdBody + L";\n");
    EXPECT_EQ(import->CallsStartingWith("PrepareForColumn"),
              std::vector<std::string>{"PrepareForColumn(,SALES,ACCT,)"});
    EXPECT_EQ(gen->m_checkColumnVector, WyStringVector({L"ID", L"NAME", L"NAME", L"ID"}));

    // An unknown column is declared from a default record.
    out.clear();
    ASSERT_TRUE(Request(kTIDAColumn, L"ACCT", L"NOPE"));
    EXPECT_NE(out.find(L"\"ACCT\".\"\" AS \"\" TYPE BIT PRECISION 0"), WyString::npos);
}

TEST_F(ColumnsKeysTest, PickListsAreFetchedAndCorrected) {
    Use(SourceMetadata());
    MIColumn column;
    column.pickListFieldName = {
        {L"account type", L"Value"}, {L"Region", L"Code"}, {L"ACCOUNT TYPE", L"Other"}};
    gen->correctPickList(column, {});
    EXPECT_EQ(column.pickListFieldName.size(), 3u);
    gen->correctPickList(column, {L"ID", L"NAME", L"Account Type"});
    ASSERT_EQ(column.pickListFieldName.size(), 2u);
    EXPECT_EQ(column.pickListFieldName[0].fieldName, L"account type");
    EXPECT_EQ(column.pickListFieldName[1].pickFieldName, L"Other");

    // In EAI mode the list asks for each named pick list except the literal "NULL".
    SourceMetadata source;
    source.eai = true;
    source.columns = {Column(kAcct, L"A", WyCharData, 1, 1), Column(kAcct, L"B", WyCharData, 1, 1),
                      Column(kAcct, L"C", WyCharData, 1, 1)};
    source.columns[0].picklistName = L"NULL";
    source.columns[1].picklistName = L"null";
    source.columns[2].picklistName = L"PL";
    source.pickLists[L"PL"] = {{L"a", L"X"}, {L"Z", L"Y"}};
    Use(source);
    gen->GenerateTableColumnUdml(nullptr);
    EXPECT_EQ(import->CallsStartingWith("GetPickList"),
              (std::vector<std::string>{"GetPickList(B)", "GetPickList(C)"}));
    EXPECT_NE(
        out.find(L"\"C\" TYPE CHAR PRECISION 1 SCALE 0 NULLABLE VALUE TYPE  MANY TO ONE  MAPPED COLUMN ''  "
                 L"MVLINK '' \n PICKLIST (\n\"SRC\".\"\".\"SALES\".\"ACCT\".\"a\" )  DESCRIPTION {}"),
        WyString::npos)
        << Utf8(out);
}

TEST_F(ColumnsKeysTest, ColumnFailuresStopTheListAndLeaveTheGeneratorUsable) {
    // A failed fetch writes nothing of the list; the columns read so far stay checked.
    Use(AcctSource());
    import->FailAt("Get(MIColumn)", 2);
    gen->GenerateTableColumnUdml(nullptr);
    EXPECT_EQ(out, L"");
    EXPECT_EQ(gen->m_checkColumnVector, WyStringVector({L"ID"}));
    gen->GenerateTableColumnUdml(nullptr);
    EXPECT_EQ(out, kIdList);

    // A failure while writing leaves the list open.
    out.clear();
    import->FailAt("GetTavrinEAI", 4);
    gen->GenerateTableColumnUdml(nullptr);
    EXPECT_EQ(out, L"\n HAVING( \n    " + kIdBody +
                       L", \n    \"SRC\".\"\".\"SALES\".\"ACCT\".\"NAME\" AS \"NAME\" TYPE VARCHAR PRECISION "
                       L"50 SCALE 0 NULLABLE");

    // A failed cache fill stores nothing, so the next request reads the table again.
    out.clear();
    import->ClearCalls();
    import->FailAt("Get(MIColumn)", 2);
    EXPECT_TRUE(Request(kTIDAColumn, L"ACCT", L"ID"));
    EXPECT_EQ(out, L"");
    EXPECT_TRUE(gen->m_importedTableColumns.empty());
    EXPECT_TRUE(Request(kTIDAColumn, L"ACCT", L"ID"));
    EXPECT_EQ(out, L"\nDECLARE COLUMN " + kIdBody + L";\n");
    EXPECT_EQ(import->CallsStartingWith("PrepareForColumn").size(), 2u);
}

const WyString kEmpHead = L"\nDECLARE TABLE KEY \"SRC\".\"\".\"HR\".\"EMP\".";
const WyString kEmpId = L"\"SRC\".\"\".\"HR\".\"EMP\".\"EMP_ID\"";
const WyString kDeptId = L"\"SRC\".\"\".\"HR\".\"EMP\".\"DEPT_ID\"";

TEST_F(ColumnsKeysTest, TableKeysFollowRunsOfNames) {
    SourceMetadata source;
    source.primaryKeys = {PrimaryKey(kEmp, L"EMP_ID", L"EMP_PK"), PrimaryKey(kEmp, L"DEPT_ID", L"EMP_PK")};
    Use(source, L"HR", L"EMP");
    gen->setCheckColumnVector({L"EMP_ID", L"DEPT_ID", L"NAME"});
    ASSERT_TRUE(Request(kTIDATableKey, L"EMP"));
    EXPECT_EQ(out, kEmpHead + L"\"EMP_PK\" AS \"EMP_PK\"\n HAVING ( " + kEmpId + L",\n" + kDeptId + L" );\n");

    // Default names, runs A,A,B,A, exact grouping, case-insensitive column check in the record's
    // own case, and a column outside the check list that is still handed back.
    source.primaryKeys = {PrimaryKey(kEmp, L"emp_id", L""),  PrimaryKey(kEmp, L"DEPT_ID", L""),
                          PrimaryKey(kEmp, L"EMP_ID", L"B"), PrimaryKey(kEmp, L"DEPT_ID", L"PK_EMP"),
                          PrimaryKey(kEmp, L"SALARY", L"b"), PrimaryKey(kEmp, L"NAME", L"b")};
    Use(source, L"HR", L"EMP");
    gen->setCheckColumnVector({L"EMP_ID", L"DEPT_ID", L"NAME"});
    MIPrimaryKeyVector keys;
    gen->GenerateTableKeyUdml(&keys);
    const WyString pk = kEmpHead + L"\"PK_EMP\" AS \"PK_EMP\"\n HAVING ( ";
    EXPECT_EQ(out, pk + L"\"SRC\".\"\".\"HR\".\"EMP\".\"emp_id\",\n" + kDeptId + L" );\n" + kEmpHead +
                       L"\"B\" AS \"B\"\n HAVING ( " + kEmpId + L" );\n" + pk + kDeptId + L" );\n" +
                       kEmpHead + L"\"b\" AS \"b\"\n HAVING ( \"SRC\".\"\".\"HR\".\"EMP\".\"NAME\" );\n");
    ASSERT_EQ(keys.size(), 6u);
    EXPECT_EQ(keys[0].primaryKeyName_, L"PK_EMP");
    EXPECT_EQ(keys[4].columnName_, L"SALARY");

    // A base table is read for the key, while names follow the declared table.
    out.clear();
    import->ClearCalls();
    EXPECT_TRUE(gen->GeneratePrimaryKey(L"", L"HR", L"EMP_SYN", L"EMP"));
    EXPECT_EQ(import->CallsStartingWith("PrepareForPrimaryKey"),
              std::vector<std::string>{"PrepareForPrimaryKey(,HR,EMP)"});
    const WyString synonymHead =
        L"\nDECLARE TABLE KEY \"SRC\".\"\".\"HR\".\"EMP_SYN\".\"PK_EMP_SYN\" AS \"PK_EMP_SYN\"";
    EXPECT_EQ(out.compare(0, synonymHead.size(), synonymHead), 0) << Utf8(out);

    // An empty check list suppresses the statement; handed-in keys ignore the check list.
    out.clear();
    gen->setCheckColumnVector({});
    EXPECT_TRUE(gen->GeneratePrimaryKey(L"", L"HR", L"EMP", L""));
    EXPECT_EQ(out, L"");
    gen->SetMITableKeys({PrimaryKey(kEmp, L"X", L"K"), PrimaryKey(kEmp, L"Y", L"K")});
    EXPECT_TRUE(gen->GeneratePrimaryKey(L"", L"HR", L"EMP", L""));
    EXPECT_EQ(out, kEmpHead + L"\"K\" AS \"K\"\n HAVING ( \"SRC\".\"\".\"HR\".\"EMP\".\"X\",\n"
                              L"\"SRC\".\"\".\"HR\".\"EMP\".\"Y\" );\n");
}

TEST_F(ColumnsKeysTest, KeyFailureLeavesTheStatementOpen) {
    SourceMetadata source;
    source.primaryKeys = {PrimaryKey(kEmp, L"EMP_ID", L"EMP_PK"), PrimaryKey(kEmp, L"DEPT_ID", L"EMP_PK")};
    Use(source, L"HR", L"EMP");
    gen->setCheckColumnVector({L"EMP_ID", L"DEPT_ID"});
    import->FailAt("Get(MIPrimaryKey)", 2);
    WyString error = L"before";
    EXPECT_TRUE(
        gen->GenerateUdml(kTIDATableKey, L"", L"HR", L"EMP", L"", L"", L"", L"", error, -1, 0xffff, false));
    EXPECT_EQ(error, L"before");
    EXPECT_EQ(out, kEmpHead + L"\"EMP_PK\" AS \"EMP_PK\"\n HAVING ( " + kEmpId);

    out.clear();
    EXPECT_TRUE(gen->GeneratePrimaryKey(L"", L"HR", L"EMP", L""));
    EXPECT_EQ(out, kEmpHead + L"\"EMP_PK\" AS \"EMP_PK\"\n HAVING ( " + kEmpId + L",\n" + kDeptId + L" );\n");

    import->FailWithOtherAt("PrepareForPrimaryKey", 1);
    EXPECT_FALSE(gen->GeneratePrimaryKey(L"", L"HR", L"EMP", L""));
}

} // namespace
