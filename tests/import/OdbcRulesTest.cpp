// The ODBC source's driver-independent rules: the data-type table with its "unsigned" word rule,
// and the connection-string texts (credential quoting, passwords hidden from messages).
#include "import/odbc/OdbcRules.h"

#include <gtest/gtest.h>

TEST(OdbcRulesTest, MapsEveryOdbcTypeCode) {
    struct Case {
        int code;
        WyDataType type;
    };
    const Case cases[] = {
        {1, WyCharData},       {-8, WyCharData},          {-11, WyCharData},        {12, WyVarCharData},
        {-9, WyVarCharData},   {-1, WyLongVarCharData},   {-10, WyLongVarCharData}, {-2, WyBinaryData},
        {-3, WyVarBinaryData}, {-4, WyLongVarBinaryData}, {-7, WyBitData},          {-6, WyInt1Data},
        {5, WyInt2Data},       {4, WyInt4Data},           {-5, WyNumericData},      {2, WyNumericData},
        {3, WyDecimalData},    {7, WyFloatData},          {6, WyDoubleData},        {8, WyDoubleData},
        {91, WyDateData},      {9, WyDateData},           {92, WyTimeData},         {10, WyTimeData},
        {93, WyTimeStampData}, {11, WyTimeStampData},     {101, WyIntervalData},    {113, WyIntervalData},
        {100, WyUnknown},      {114, WyUnknown},          {0, WyUnknown},           {-150, WyUnknown},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(MapOdbcDataType(c.code, L"X"), c.type) << "ODBC type " << c.code;
    }
    EXPECT_EQ(MapOdbcDataType(-6, L"tinyint unsigned"), WyUInt1Data);
    EXPECT_EQ(MapOdbcDataType(5, L"SMALLINT UNSIGNED"), WyUInt2Data);
    EXPECT_EQ(MapOdbcDataType(4, L"int(10) unsigned"), WyUInt4Data);
    // Only the three integer types have unsigned forms.
    EXPECT_EQ(MapOdbcDataType(-5, L"BIGINT UNSIGNED"), WyNumericData);
    EXPECT_EQ(MapOdbcDataType(3, L"DECIMAL UNSIGNED"), WyDecimalData);
}

TEST(OdbcRulesTest, UnsignedMustBeAWholeWord) {
    EXPECT_TRUE(TypeNameSaysUnsigned(L"UNSIGNED"));
    EXPECT_TRUE(TypeNameSaysUnsigned(L"Unsigned Int"));
    EXPECT_TRUE(TypeNameSaysUnsigned(L"tinyint(3) unsigned zerofill"));
    EXPECT_TRUE(TypeNameSaysUnsigned(L"int_unsigned"));
    EXPECT_TRUE(TypeNameSaysUnsigned(L"unsignedx unsigned")); // the second occurrence stands alone
    EXPECT_FALSE(TypeNameSaysUnsigned(L"unsignedint"));
    EXPECT_FALSE(TypeNameSaysUnsigned(L"xunsigned"));
    EXPECT_FALSE(TypeNameSaysUnsigned(L"unsigned2"));
    EXPECT_FALSE(TypeNameSaysUnsigned(L"\u00E9unsigned")); // a letter beyond ASCII is a letter too
    EXPECT_FALSE(TypeNameSaysUnsigned(L"unsigne"));
    EXPECT_FALSE(TypeNameSaysUnsigned(L""));
}

// The form of appended credentials is fixed text; the live credential test logs them in.
TEST(OdbcRulesTest, AppendsCredentialsInTheirFixedForm) {
    EXPECT_EQ(AppendCredentials(L"DSN=sales", L"scott", L"t;g}r"), L"DSN=sales;UID=scott;PWD={t;g}}r}");
    EXPECT_EQ(AppendCredentials(L"DSN=sales;", L"scott", L""), L"DSN=sales;UID=scott");
    EXPECT_EQ(AppendCredentials(L"DSN=sales", L"", L"pw"), L"DSN=sales;PWD=pw");
    EXPECT_EQ(AppendCredentials(L"DSN=sales", L"", L""), L"DSN=sales");
}

TEST(OdbcRulesTest, HidesPasswordsOfAnyFormInMessages) {
    EXPECT_EQ(HidePasswords(L"Driver=x;UID=u;PWD=secret"), L"Driver=x;UID=u;PWD=***");
    EXPECT_EQ(HidePasswords(L"pwd={a;b}};c};Database=y"), L"pwd=***;Database=y");
    EXPECT_EQ(HidePasswords(L"Password = p w ;Server=s"), L"Password =***;Server=s");
    EXPECT_EQ(HidePasswords(L"Driver={My Driver};Database=/tmp/a.db"),
              L"Driver={My Driver};Database=/tmp/a.db");
    EXPECT_EQ(HidePasswords(L"odd;;PWD=x"), L"odd;;PWD=***");
}
