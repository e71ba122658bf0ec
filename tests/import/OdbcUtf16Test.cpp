// The UTF-16 conversion of the ODBC source: surrogate pairs both ways, and every ill-formed unit
// turned into U+FFFD instead of being dropped or passed on.
#include "import/odbc/Utf16.h"

#include <gtest/gtest.h>

TEST(OdbcUtf16Test, RoundTripsEveryPlane) {
    const WyString wide = L"a\u00DF\u20AC\U0001F600\U0010FFFF\uFFFD\uE000z";
    const std::u16string utf16 = u"a\u00DF\u20AC\xD83D\xDE00\xDBFF\xDFFF\uFFFD\uE000z";
    EXPECT_EQ(WideToUtf16(wide), utf16);
    EXPECT_EQ(Utf16ToWide(utf16), wide);
    EXPECT_EQ(WideToUtf16(L""), u"");
    EXPECT_EQ(Utf16ToWide(u""), L"");
}

TEST(OdbcUtf16Test, WideUnitsThatAreNoScalarValueBecomeReplacement) {
    WyString wide = L"a";
    wide += static_cast<wchar_t>(0xD800); // a surrogate has no place in 32-bit text
    wide += static_cast<wchar_t>(0xDFFF);
    wide += static_cast<wchar_t>(0x110000);
    wide += static_cast<wchar_t>(-1);
    wide += L'b';
    EXPECT_EQ(WideToUtf16(wide), u"a\uFFFD\uFFFD\uFFFD\uFFFDb");
}

TEST(OdbcUtf16Test, LoneSurrogatesBecomeOneReplacementEach) {
    struct Case {
        std::u16string utf16;
        WyString wide;
    };
    const Case cases[] = {
        {u"x\xD83D", L"x\uFFFD"},                     // high surrogate at the end
        {u"\xDE00y", L"\uFFFDy"},                     // low surrogate first
        {u"\xD83Dy", L"\uFFFDy"},                     // high followed by a plain unit
        {u"\xDE00\xD83D", L"\uFFFD\uFFFD"},           // pair in the wrong order
        {u"\xD83D\xD83D\xDE00", L"\uFFFD\U0001F600"}, // the second high starts the pair
        {u"a\xDE00\xD83D\xDE00", L"a\uFFFD\U0001F600"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Utf16ToWide(c.utf16), c.wide) << "case with " << c.utf16.size() << " units";
    }
}
