// Assertions of broken caller preconditions, and reports of logic errors that let the process go on.
#pragma once

#include "platform/WyString.h"

#include <functional>

class WyAssert {
public:
    /// Names file, line and expression on standard error, then stops the process.
    [[noreturn]] static void handleAssert(const char* file, int line, const char* expression);
    /// Names file, line and message on standard error; the process goes on.
    static void handleLogicError(const wchar_t* file, int line, const WyString& message);

    /// Replaces where logic errors are reported (tests count them); null restores standard error.
    using LogicErrorSink = std::function<void(const wchar_t* file, int line, const WyString& message)>;
    static void SetLogicErrorSink(LogicErrorSink sink);
};
