// Ctrl-C and SIGTERM for udmlgen: the signal handler only wakes a watcher thread, which stops the
// walk, cancels the driver's running statements and, should the run still not end, leaves anyway.
#pragma once

#include <cstdio>
#include <functional>

class CUdmlGenerator;

namespace udmlgen {

/// Installs the handlers of SIGINT and SIGTERM and starts the watcher. `cancel` is called from
/// the watcher (never from the handler) to cancel whatever the data source is running; it must
/// be safe to call from another thread at any time.
///
/// Until Walking() is called, a signal ends the process at once with 128 + signal, after the
/// cancellation had up to 0.2 s: nothing has been written that could be lost. Afterwards it
/// aborts the generator and cancels the running statements, so that the main flow ends the walk,
/// closes the output and exits with 128 + signal itself. A driver call still blocked after 0.3 s
/// has its connection's socket shut down; if the main flow has not ended within 0.9 s, the
/// watcher flushes the output and exits for it.
void InstallInterruptHandling(std::function<void()> cancel);

/// From now on a signal stops `generator` and keeps what reached `output`; call it again with null
/// pointers before either goes away.
void Walking(CUdmlGenerator* generator, std::FILE* output);

/// The signal received, or 0.
int ReceivedSignal();

} // namespace udmlgen
