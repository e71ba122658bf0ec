// Ctrl-C and SIGTERM: the walk stops at its next step, the driver's running statements are
// cancelled, and the run ends with 128 + the signal, keeping what it wrote.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

class CUdmlGenerator;

namespace udmlgen {

/// Routes SIGINT and SIGTERM to a watcher thread and ignores SIGPIPE, so that a closed pipe
/// becomes a write error naming standard output instead of a silent death. `cancel` is called from
/// the watcher (never from the handler) to cancel whatever the data source is running; it must be
/// safe to call from another thread at any time.
///
/// Without an abort target a signal ends the process at once with 128 + signal, after the
/// cancellation had up to 0.2 s, keeping a pending output file as its .partial. With one, it aborts
/// the generator and cancels the running statements, so that the main flow ends the walk, closes
/// the output and exits itself. A driver call still blocked after 0.3 s has its connection's socket
/// shut down; if the main flow has not ended within 0.9 s, the watcher flushes the output, keeps
/// it as its .partial and exits for it.
void InstallSignalHandlers(std::function<void()> cancel);
/// The generator a signal aborts while it runs; null when none runs.
void SetAbortTarget(CUdmlGenerator* generator);
/// The output a signal must keep: its stream (flushed when the watcher has to leave), and the
/// temporary file to keep as `partial`; a null stream and "" for none.
void SetPendingOutput(std::FILE* stream, const std::string& temporary, const std::string& partial);
/// The signal that arrived, or 0.
int ReceivedSignal();

} // namespace udmlgen
