// The signal handler touches only what is safe there: an atomic pointer, rename, write, _exit.
#include "Interrupt.h"

#include "SMUOdbcGenerator.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace udmlgen {
namespace {

std::atomic<CUdmlGenerator*> g_generator{nullptr};
volatile std::sig_atomic_t g_signal = 0;

// Fixed buffers: the handler may not allocate. Paths longer than this are not kept on a signal.
char g_temporary[4096];
char g_partial[4096];
std::atomic<bool> g_pending{false};

extern "C" void OnSignal(int signal) {
    g_signal = signal;
    if (CUdmlGenerator* generator = g_generator.load()) {
        generator->Abort();
        return;
    }
    if (g_pending.load() && std::rename(g_temporary, g_partial) == 0) {
        const char note[] = "udmlgen: interrupted; what was written is kept in ";
        (void)!write(STDERR_FILENO, note, sizeof note - 1);
        (void)!write(STDERR_FILENO, g_partial, std::strlen(g_partial));
        (void)!write(STDERR_FILENO, "\n", 1);
    }
    _exit(128 + signal);
}

} // namespace

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

void SetAbortTarget(CUdmlGenerator* generator) {
    g_generator.store(generator);
}

void SetPendingOutput(const std::string& temporary, const std::string& partial) {
    g_pending.store(false);
    if (temporary.empty() || temporary.size() >= sizeof g_temporary || partial.size() >= sizeof g_partial)
        return;
    std::memcpy(g_temporary, temporary.c_str(), temporary.size() + 1);
    std::memcpy(g_partial, partial.c_str(), partial.size() + 1);
    g_pending.store(true);
}

int ReceivedSignal() {
    return g_signal;
}

} // namespace udmlgen
