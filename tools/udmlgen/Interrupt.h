// Ctrl-C and SIGTERM: the walk stops at its next step and the run ends with 128 + the signal.
#pragma once

#include <string>

class CUdmlGenerator;

namespace udmlgen {

/// Routes SIGINT and SIGTERM to the handler below, and ignores SIGPIPE so that a closed pipe
/// becomes a write error naming standard output instead of a silent death.
void InstallSignalHandlers();
/// The generator a signal aborts while it runs; null when none runs. Without one, a signal ends
/// the process at once, keeping a pending output file as its .partial.
void SetAbortTarget(CUdmlGenerator* generator);
/// The temporary output file a signal outside the walk must keep as `partial`; "" for none.
void SetPendingOutput(const std::string& temporary, const std::string& partial);
/// The signal that arrived, or 0.
int ReceivedSignal();

} // namespace udmlgen
