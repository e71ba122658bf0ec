// The converters widen and narrow ASCII in fixed-size steps: text longer than one step, with
// other characters at and around the step boundaries, must come through whole and in order.
#include "platform/BaseStringUtil.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const unsigned kUtf8 = SystemUtility::kUtf8CodePage;

TEST(Utf8Runs, LongAsciiRunsAroundOtherCharactersRoundTrip) {
    // Runs of every length near the step size, separated by two-, three- and four-byte characters
    // and by one ill-formed unit, so that each boundary falls somewhere else.
    WyString wide;
    std::string expected;
    const wchar_t separators[] = {L'\u00E9', L'\u20AC', static_cast<wchar_t>(0x1F600)};
    for (size_t length = 120; length <= 300; length += 7) {
        for (size_t i = 0; i < length; ++i)
            wide.push_back(static_cast<wchar_t>(L'a' + (i + length) % 26));
        wide.push_back(separators[length % 3]);
    }
    const std::string bytes = BaseStringUtil::StringToStdString(wide, kUtf8);
    WyString back;
    BaseStringUtil::AppendFromUtf8(bytes.data(), bytes.size(), back);
    EXPECT_EQ(wide, back);

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

} // namespace
