// udmlgen: drives the generator over an ODBC source or a snapshot file and streams the UDML it
// writes to standard output or a file. Messages go to standard error, never to the output.
#include "DataSources.h"
#include "Diff.h"
#include "Interrupt.h"
#include "Log.h"
#include "Options.h"
#include "Run.h"
#include "SourceGuard.h"

#include "platform/ErrorMessage.h"

#include <clocale>
#include <iostream>

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

int Usage(const udmlgen::UsageError& error) {
    std::cerr << "udmlgen: " << error.message << "\nRun 'udmlgen --help' for usage.\n";
    return kExitUsage;
}

} // namespace

int main(int argc, char** argv) {
    // NOTE: the SQLite ODBC driver has no wide entry points, so unixODBC narrows our names with the
    // process locale; under the default "C" locale non-ASCII names were lost on their way to the
    // driver (observed with table names holding "ß"). Our own conversions ignore the locale.
    if (!std::setlocale(LC_CTYPE, "C.UTF-8"))
        std::setlocale(LC_CTYPE, "");
    using udmlgen::Options;
    std::optional<Options> options;
    try {
        options = udmlgen::ParseOptions(argc, argv);
    } catch (const udmlgen::UsageError& error) {
        return Usage(error);
    }
    if (!options)
        return 0;
    udmlgen::InstallSignalHandlers(udmlgen::CancelRunningSourceCalls);
    udmlgen::ApplySourceLimits(*options);

    try {
        switch (options->command) {
        case Options::Command::ListSources:
            return udmlgen::ListDataSources();
        case Options::Command::Snapshot:
            return udmlgen::CaptureSnapshot(*options);
        case Options::Command::Generate:
            return udmlgen::Generate(*options);
        case Options::Command::Diff:
            return udmlgen::Diff(*options);
        }
    } catch (const udmlgen::UsageError& error) {
        return Usage(error);
    } catch (const ErrorMessage& error) {
        udmlgen::Log::Error("error", std::vector<WyString>(error.Messages().begin(), error.Messages().end()));
    } catch (const std::exception& error) {
        std::cerr << "udmlgen: " << error.what() << "\n";
    }
    return kExitFailure;
}
