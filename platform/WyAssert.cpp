// Reports of broken preconditions (fatal) and of logic errors (the process goes on). A test or a
// host may route logic errors to a sink of its own; the sink may be swapped from any thread.
#include "platform/WyAssert.h"

#include "platform/BaseStringUtil.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <mutex>
#include <string>

namespace {

std::mutex& SinkMutex() {
    static std::mutex mutex;
    return mutex;
}

WyAssert::LogicErrorSink& Sink() {
    static WyAssert::LogicErrorSink sink;
    return sink;
}

} // namespace

void WyAssert::handleAssert(const char* file, int line, const char* expression) {
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file ? file : "(unknown)", line,
                 expression ? expression : "");
    std::fflush(stderr);
    std::abort();
}

void WyAssert::handleLogicError(const wchar_t* file, int line, const WyString& message) {
    LogicErrorSink sink;
    {
        std::lock_guard<std::mutex> lock(SinkMutex());
        sink = Sink();
    }
    // Called outside the lock so that a sink may itself report or replace the sink.
    if (sink) {
        sink(file, line, message);
        return;
    }
    std::string text;
    BaseStringUtil::AppendUtf8(file ? WyString(file) : WyString(L"(unknown)"), text);
    text += ':';
    text += std::to_string(line);
    text += ": logic error: ";
    BaseStringUtil::AppendUtf8(message, text);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

void WyAssert::SetLogicErrorSink(LogicErrorSink sink) {
    std::lock_guard<std::mutex> lock(SinkMutex());
    Sink() = std::move(sink);
}
