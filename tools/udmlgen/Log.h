// What udmlgen says on standard error: errors always, with hints where a next step is known;
// the summary unless -q; each phase with its time under -v.
#pragma once

#include "Options.h"

#include "platform/WyString.h"

#include <chrono>
#include <string>
#include <vector>

namespace udmlgen {

struct Counts;

class Log {
public:
    explicit Log(Verbosity verbosity) : m_verbosity(verbosity) {}

    /// Under -v: "udmlgen: WHAT (S s)" with the time since the last phase ended.
    void Phase(const std::string& what);
    /// The summary line, unless -q.
    void Summary(const Counts& written);
    /// A line unless -q.
    void Note(const std::string& text) const;
    bool Quiet() const { return m_verbosity == Verbosity::Quiet; }

    /// One line: "udmlgen: CONTEXT: message: message", then a line per hint for what to do next.
    static void Error(const std::string& context, const std::vector<WyString>& messages);

private:
    using Clock = std::chrono::steady_clock;
    Verbosity m_verbosity;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_phaseStart = m_start;
};

/// The lines of a text, for error texts the generator joins with "\n".
std::vector<WyString> Lines(const WyString& text);

} // namespace udmlgen
