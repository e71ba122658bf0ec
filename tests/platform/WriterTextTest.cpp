// The writer library's exact texts, the name makers, the error-message stack and the logic-error
// report: the texts every statement is built from, compared whole.
#include "platform/ErrorMessage.h"
#include "platform/UDMLWyGenerator.h"
#include "platform/WyAssert.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(BraceEscaping, EscapesBackslashAndBothBraces) {
    EXPECT_EQ(L"{}", UDMLWyGenerator::EscapeCurlyBraceInWyString(L""));
    EXPECT_EQ(L"{a\\{b\\}c\\\\d\\\\\\}}", UDMLWyGenerator::EscapeCurlyBraceInWyString(L"a{b}c\\d\\}"));
    EXPECT_EQ(L"{'\"\u00E9}", UDMLWyGenerator::EscapeCurlyBraceInWyString(L"'\"\u00E9"));
}

TEST(PropertyClause, EntriesInKeyOrderAppendedToTheOutput) {
    WyString out = L"head";
    WyStringStringMap none;
    EXPECT_EQ(L"head", UDMLWyGenerator::GenerateTblOrColumnProperties(none, out));

    WyStringStringMap properties{{L"b}", L"2"}, {L"EFF_CONTEXT_NAME", L"ctx"}, {L"A", L""}};
    ExternalizationUtil::SetZelIsHiddenProperty(properties, true);
    WyString& result = UDMLWyGenerator::GenerateTblOrColumnProperties(properties, out);
    EXPECT_EQ(&out, &result);
    EXPECT_EQ(L"head PROPERTIES ({A} = {}, {EFF_CONTEXT_NAME} = {ctx}, {IS_HIDDEN} = {true}, {b\\}} = {2})",
              out);

    ExternalizationUtil::SetZelIsHiddenProperty(properties, false);
    EXPECT_EQ(L"false", properties[S_IS_HIDDEN]);
    EXPECT_TRUE(s_ksBlank.empty());
}

TEST(NameMakers, UniqueNameTakesTheSmallestFreeSuffix) {
    WyStringVector names{L"FK", L"FK_1", L"FK_3", L"fk_2"};
    EXPECT_EQ(L"FK_2", GenerateUniqueName(names, L"FK")); // exact comparison: fk_2 does not count
    EXPECT_EQ(L"Other", GenerateUniqueName(names, L"Other"));
    EXPECT_EQ(L"FK_1_1", GenerateUniqueName(names, L"FK_1"));
    WyStringVector empty;
    EXPECT_EQ(L"", GenerateUniqueName(empty, L""));
    int n = 12;
    EXPECT_EQ(L"A_B_12", GenerateName(L"A_B", n));
    n = -1;
    EXPECT_EQ(L"x_-1", GenerateName(L"x", n));
}

std::vector<WyString> PopAll(ErrorMessage& error, unsigned long size) {
    std::vector<WyString> popped;
    std::vector<wchar_t> buffer(size);
    while (error.PopErrorMessage(buffer.data(), size))
        popped.emplace_back(buffer.data());
    return popped;
}

TEST(ErrorMessageStack, PopsInOrderAndSplitsLongMessagesWithoutLoss) {
    ErrorMessage error(L"s\u00E9cond");
    error.AddMessage(L"third message");
    error.AddMessageFront(L"first");
    EXPECT_STREQ("first\ns\xC3\xA9"
                 "cond\nthird message",
                 error.what()); // UTF-8
    EXPECT_EQ((std::vector<WyString>{L"first", L"s\u00E9con", L"d", L"third", L" mess", L"age"}),
              PopAll(error, 6));
    EXPECT_TRUE(error.Messages().empty());

    ErrorMessage exact(L"12345");
    EXPECT_EQ((std::vector<WyString>{L"12345"}), PopAll(exact, 6));
}

TEST(ErrorMessageStack, UnusableBuffersPopNothing) {
    ErrorMessage error(L"abc");
    wchar_t buffer[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_FALSE(error.PopErrorMessage(nullptr, 4));
    EXPECT_FALSE(error.PopErrorMessage(buffer, 0));
    EXPECT_EQ(L'x', buffer[0]);
    // A buffer with room for the terminator alone cannot make progress, so it must not loop.
    EXPECT_FALSE(error.PopErrorMessage(buffer, 1));
    ASSERT_EQ(1u, error.Messages().size());
    EXPECT_EQ(L"abc", error.Messages().front());

    ErrorMessage withEmpty(L"");
    EXPECT_TRUE(withEmpty.PopErrorMessage(buffer, 1));
    EXPECT_EQ(L'\0', buffer[0]);
    EXPECT_FALSE(withEmpty.PopErrorMessage(buffer, 4));
}

TEST(LogicErrors, GoToTheSinkOrToStandardError) {
    std::vector<std::pair<int, WyString>> seen;
    WyAssert::SetLogicErrorSink([&seen](const wchar_t* file, int line, const WyString& message) {
        seen.emplace_back(line, WyString(file) + L"|" + message);
    });
    WyAssert::handleLogicError(L"src/Gen", 1985, L"");
    WyAssert::SetLogicErrorSink(nullptr);
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ(1985, seen[0].first);
    EXPECT_EQ(L"src/Gen|", seen[0].second);

    testing::internal::CaptureStderr();
    WyAssert::handleLogicError(L"src/G\u00E9n", 7, L"bad \u00E9");
    EXPECT_EQ("src/G\xC3\xA9n:7: logic error: bad \xC3\xA9\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(1u, seen.size());
}

} // namespace
