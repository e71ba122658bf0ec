// The error-message stack a host pops into its own buffers, and the stop at a broken precondition. The writer
// library's texts (brace escaping, property clauses, name makers, logic-error reports) are pinned through
// whole outputs by the golden texts.
#include "platform/ErrorMessage.h"
#include "platform/WyAssert.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

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
    ErrorMessage exact(L"12345");
    EXPECT_EQ((std::vector<WyString>{L"12345"}), PopAll(exact, 6));

    // A buffer with room for the terminator alone cannot make progress, so it must not loop.
    ErrorMessage kept(L"abc");
    wchar_t buffer[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_FALSE(kept.PopErrorMessage(nullptr, 4));
    EXPECT_FALSE(kept.PopErrorMessage(buffer, 1));
    EXPECT_EQ((std::vector<WyString>{L"abc"}), PopAll(kept, 4));
    ErrorMessage withEmpty(L"");
    EXPECT_TRUE(withEmpty.PopErrorMessage(buffer, 1));
    EXPECT_EQ(L'\0', buffer[0]);
}

// A broken precondition names its place and stops the process instead of writing on.
TEST(AssertionDeathTest, NamesFileLineAndExpressionAndStops) {
    EXPECT_DEATH(WyAssert::handleAssert("Gen.cpp", 12, "pImport != nullptr"),
                 "Gen.cpp:12: assertion failed: pImport != nullptr");
}

} // namespace
