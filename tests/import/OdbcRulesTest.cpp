// The ODBC source's driver-independent rules: the data-type table with its "unsigned" word rule,
// and the connection-string texts (credential quoting, passwords hidden from messages).
#include "import/odbc/OdbcRules.h"

#include <gtest/gtest.h>

TEST(OdbcRulesTest, MapsTypeCodesAndUnsignedIntegers) {
    // The codes whose mapping is not the obvious one; the common ones show in the SQLite tests.
    EXPECT_EQ(MapOdbcDataType(-9, L"X"), WyVarCharData);   // wide texts are texts
    EXPECT_EQ(MapOdbcDataType(-5, L"X"), WyNumericData);   // BIGINT has no 64-bit type here
    EXPECT_EQ(MapOdbcDataType(11, L"X"), WyTimeStampData); // the ODBC 2 date-time codes
    EXPECT_EQ(MapOdbcDataType(113, L"X"), WyIntervalData);
    EXPECT_EQ(MapOdbcDataType(114, L"X"), WyUnknown);
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
    EXPECT_EQ(AppendCredentials(L"DSN=sales", L"ada", L"t;g}r"), L"DSN=sales;UID=ada;PWD={t;g}}r}");
    EXPECT_EQ(AppendCredentials(L"DSN=sales;", L"ada", L""), L"DSN=sales;UID=ada");
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
