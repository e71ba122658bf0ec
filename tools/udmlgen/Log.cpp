// Messages of udmlgen on standard error.
#include "Log.h"

#include "Output.h"
#include "Source.h"

#include "platform/BaseStringUtil.h"
#include "platform/SystemUtility.h"

#include <cstdio>
#include <iostream>

namespace udmlgen {
namespace {

std::string Seconds(std::chrono::steady_clock::duration elapsed) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f s", std::chrono::duration<double>(elapsed).count());
    return text;
}

} // namespace

void Log::Phase(const std::string& what) {
    const Clock::time_point now = Clock::now();
    if (m_verbosity == Verbosity::Verbose)
        std::cerr << "udmlgen: " << what << " (" << Seconds(now - m_phaseStart) << ")\n";
    m_phaseStart = now;
}

void Log::Summary(const Counts& written) {
    if (Quiet())
        return;
    std::cerr << "udmlgen: wrote " << written.catalogs << " catalogs, " << written.schemas << " schemas, "
              << written.tables << " tables, " << written.columns << " columns, " << written.keys << " keys, "
              << written.foreignKeys << " foreign keys, " << written.joins << " joins in "
              << Seconds(Clock::now() - m_start) << "\n";
}

void Log::Note(const std::string& text) const {
    if (!Quiet())
        std::cerr << "udmlgen: " << text << "\n";
}

void Log::Error(const std::string& context, const std::vector<WyString>& messages) {
    std::string line = "udmlgen: " + context;
    for (const WyString& message : messages) {
        std::string text = BaseStringUtil::StringToStdString(message, SystemUtility::GetMultiByteCodePage());
        while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
            text.pop_back();
        if (!text.empty())
            line += ": " + text;
    }
    for (char& c : line)
        if (c == '\n')
            c = ' ';
    std::cerr << line << "\n";
    for (const std::string& hint : HintsFor(line))
        std::cerr << "udmlgen: hint: " << hint << "\n";
}

std::vector<WyString> Lines(const WyString& text) {
    WyStringVector lines;
    BaseStringUtil::Tokenize(text, L"\n", lines, false, false);
    return std::vector<WyString>(lines.begin(), lines.end());
}

} // namespace udmlgen
