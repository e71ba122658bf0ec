// Conversions and case rules of the string utilities: the places where a hand-written converter
// or a locale slip would corrupt names.
#include "platform/BaseStringUtil.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace {

const unsigned kUtf8 = SystemUtility::kUtf8CodePage;

WyString FromUtf8(const std::string& bytes) {
    WyString out;
    BaseStringUtil::AppendFromUtf8(bytes.data(), bytes.size(), out);
    return out;
}

size_t CountReplacements(const WyString& text) {
    size_t n = 0;
    for (wchar_t c : text)
        n += c == 0xFFFD;
    return n;
}

TEST(Utf8Conversion, EncodesEveryLengthAndRoundTrips) {
    // One-, two-, three- and four-byte characters, the last outside the BMP.
    const WyString wide = L"A\u00DF\u20AC\U0001F600z";
    const std::string bytes = BaseStringUtil::StringToStdString(wide, kUtf8);
    EXPECT_EQ("A\xC3\x9F\xE2\x82\xAC\xF0\x9F\x98\x80z", bytes);
    EXPECT_EQ(wide, BaseStringUtil::StringFrom(bytes.c_str(), kUtf8));

    // The edges of each length and of the code space survive a round trip.
    const WyString edges = {0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF};
    EXPECT_EQ(edges, FromUtf8(BaseStringUtil::StringToStdString(edges, kUtf8)));
    EXPECT_EQ(L"", BaseStringUtil::StringFrom(static_cast<const char*>(nullptr), kUtf8));

    // Code units that are no Unicode scalar value become U+FFFD.
    const WyString bad = {L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000),
                          static_cast<wchar_t>(-1), L'b'};
    EXPECT_EQ("a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"
              "b",
              BaseStringUtil::StringToStdString(bad, kUtf8));
}

// The converters widen and narrow ASCII in fixed-size steps: runs of every length near the step
// size, separated by two-, three- and four-byte characters, put each boundary somewhere else.
TEST(Utf8Conversion, LongAsciiRunsAroundOtherCharactersRoundTripAndAppend) {
    WyString wide;
    const wchar_t separators[] = {L'\u00E9', L'\u20AC', static_cast<wchar_t>(0x1F600)};
    for (size_t length = 120; length <= 300; length += 7) {
        for (size_t i = 0; i < length; ++i)
            wide.push_back(static_cast<wchar_t>(L'a' + (i + length) % 26));
        wide.push_back(separators[length % 3]);
    }
    EXPECT_EQ(wide, FromUtf8(BaseStringUtil::StringToStdString(wide, kUtf8)));

    // Appending keeps what the output held; an ill-formed unit inside a long run becomes one
    // U+FFFD in both directions without taking its neighbours along.
    const std::string ascii(200, 'x');
    std::string narrow = "head:";
    BaseStringUtil::AppendUtf8(WyString(200, L'x') + static_cast<wchar_t>(0xD800) + WyString(200, L'x'),
                               narrow);
    EXPECT_EQ("head:" + ascii + "\xEF\xBF\xBD" + ascii, narrow);
    WyString widened = L"head:";
    const std::string illFormed = ascii + "\xFF" + ascii;
    BaseStringUtil::AppendFromUtf8(illFormed.data(), illFormed.size(), widened);
    EXPECT_EQ(L"head:" + WyString(200, L'x') + L"\uFFFD" + WyString(200, L'x'), widened);
}

TEST(Utf8Conversion, IllFormedInputGivesOneReplacementPerMaximalSubpart) {
    struct Case {
        std::string bytes;
        WyString expected;
    };
    const WyString r(1, 0xFFFD);
    const Case cases[] = {
        {"\xF0\x80\x80", r + r + r}, // F0 needs 90..BF next: each byte stands alone
        {"\xE2\x82"
         "A",
         r + L"A"},                          // truncated sequence, then a good character
        {"\xC0\xAF", r + r},                 // overlong lead bytes are never valid
        {"\xE0\x80\xAF", r + r + r},         // overlong three-byte form
        {"\xED\xA0\x80", r + r + r},         // an encoded surrogate
        {"\xF4\x90\x80\x80", r + r + r + r}, // past U+10FFFF
        {"\xF5\x80", r + r},                 // lead bytes F5..FF
        {"\x80\xBF", r + r},                 // stray continuation bytes
        {"\xF0\x9F\x98", r},                 // three of four bytes, at the end
        {"\xF0\x9F\x98"
         "\xF0\x9F\x98\x80",
         r + L"\U0001F600"}, // truncation followed by the complete character
        {"a\xFF"
         "b",
         L"a" + r + L"b"},
    };
    for (const Case& c : cases) {
        const WyString got = FromUtf8(c.bytes);
        EXPECT_EQ(c.expected, got) << "input of " << c.bytes.size() << " bytes";
        EXPECT_EQ(CountReplacements(c.expected), CountReplacements(got));
    }
}

TEST(CaseRules, MapNonAsciiWithoutTouchingTheProcessLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    EXPECT_EQ(L"\u00C4RGER \u0394\u0395\u039B\u03A4\u0391 \u0416",
              BaseStringUtil::ToUpperCase(L"\u00E4rger \u03B4\u03B5\u03BB\u03C4\u03B1 \u0436"));
    EXPECT_EQ(L"stra\u00DFe \u00E9t\u00E9", BaseStringUtil::ToLowerCase(L"STRA\u00DFE \u00C9T\u00C9"));
    // Simple mappings only: sharp s has no one-unit upper case and stays as it is.
    EXPECT_EQ(L"\u00DF", BaseStringUtil::ToUpperCase(L"\u00DF"));
    // Outside the BMP (Deseret).
    EXPECT_EQ(static_cast<wchar_t>(0x10428), BaseStringUtil::ToLower(static_cast<wchar_t>(0x10400)));
    // Units that are not characters pass through unchanged.
    EXPECT_EQ(static_cast<wchar_t>(-5), BaseStringUtil::ToUpper(static_cast<wchar_t>(-5)));
    EXPECT_EQ(static_cast<wchar_t>(0x110000), BaseStringUtil::ToLower(static_cast<wchar_t>(0x110000)));
    EXPECT_EQ(before, std::setlocale(LC_ALL, nullptr));
}

TEST(CaseRules, CompareAndOrderByLowerCasedUnits) {
    EXPECT_TRUE(BaseStringUtil::IsCaseInsensitiveMatch(L"Gr\u00F6\u00DFe", L"GR\u00D6\u00DFE"));
    EXPECT_FALSE(BaseStringUtil::IsCaseInsensitiveMatch(L"abc", L"abcd"));
    EXPECT_EQ(0, BaseStringUtil::CaseInsensitiveCompare(L"\u03A3igma", L"\u03C3IGMA"));
    // "_" (0x5F) lies between the upper- and lower-case letters: ordering must use lower case.
    EXPECT_TRUE(BaseStringUtil::IsCaseInsensitiveLessThan(L"_", L"A"));
    EXPECT_TRUE(BaseStringUtil::IsCaseInsensitiveLessThan(L"Z", L"\u00E4"));
    EXPECT_LT(BaseStringUtil::CaseInsensitiveCompare(L"ab", L"ABC"), 0);
    EXPECT_TRUE(BaseStringUtil::IsCaseInsensitiveLessThan(L"hr", L"Sales"));
    EXPECT_FALSE(BaseStringUtil::IsCaseInsensitiveLessThan(L"Sales", L"SALES"));
    EXPECT_TRUE(BaseStringUtil::CaseInsensitiveFindPatternAtStart(L"\u00C9cole normale", L"\u00E9COLE"));
    EXPECT_FALSE(BaseStringUtil::CaseInsensitiveFindPatternAtStart(L"ab", L"abc"));
    EXPECT_TRUE(BaseStringUtil::CaseInsensitiveFindPatternAtStart(L"ab", L""));
}

} // namespace
