// The signal watcher of udmlgen. A signal handler may call only async-signal-safe functions, and a
// driver blocked in a call to the server returns only when something outside it acts: so the
// handler writes the signal's number to a pipe, and a thread that waits on the pipe does the work.
#include "Interrupt.h"

#include "SMUOdbcGenerator.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace udmlgen {
namespace {

int g_pipe[2] = {-1, -1};
volatile std::sig_atomic_t g_signal = 0;

std::mutex g_mutex;
CUdmlGenerator* g_generator = nullptr;
std::FILE* g_output = nullptr;
std::string g_temporary, g_partial;
std::function<void()> g_cancel;

extern "C" void OnSignal(int signal) {
    const int saved = errno;
    if (g_signal == 0)
        g_signal = signal;
    const char byte = static_cast<char>(signal);
    // A full pipe means the watcher is already awake; nothing more to say.
    [[maybe_unused]] const ssize_t written = write(g_pipe[1], &byte, 1);
    errno = saved;
}

void Say(const std::string& text) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

// Runs the cancellation on a thread of its own: a driver manager may make SQLCancel wait, and the
// watcher must keep its deadline.
void CancelInBackground(std::function<void()> cancel, std::chrono::milliseconds wait) {
    if (!cancel)
        return;
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread([cancel = std::move(cancel), done] {
        cancel();
        done->store(true);
    }).detach();
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (!done->load() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

// Ends the conversation on every socket of the process but the output's: a blocked driver call
// then returns at once with a communication error. For drivers whose SQLCancel does not reach a
// running catalog function (psqlODBC 13 sends the server a cancel request only for statements it
// executes itself, not for the queries behind SQLTables, SQLColumns and the key functions).
void ShutDownSockets(int keep) {
    DIR* folder = opendir("/proc/self/fd");
    if (folder == nullptr)
        return;
    while (const dirent* entry = readdir(folder)) {
        const int fd = std::atoi(entry->d_name);
        struct stat info {};
        if (fd > STDERR_FILENO && fd != keep && fd != dirfd(folder) && fstat(fd, &info) == 0 &&
            S_ISSOCK(info.st_mode))
            shutdown(fd, SHUT_RDWR);
    }
    closedir(folder);
}

// Leaves for the main flow: what was written is kept as the pending output's .partial. Called
// with the mutex held.
[[noreturn]] void Leave(int signal, const char* why) {
    if (g_output != nullptr && ftrylockfile(g_output) == 0) {
        std::fflush(g_output);
        funlockfile(g_output);
    }
    if (!g_temporary.empty() && std::rename(g_temporary.c_str(), g_partial.c_str()) == 0)
        Say(std::string("udmlgen: interrupted") + why + "; what was written is kept in " + g_partial + "\n");
    else if (*why != '\0')
        Say(std::string("udmlgen: interrupted") + why + "; the output holds what was written until then\n");
    _exit(128 + signal);
}

void Watch() {
    char byte = 0;
    while (read(g_pipe[0], &byte, 1) < 0 && errno == EINTR) {
    }
    const int signal = g_signal != 0 ? static_cast<int>(g_signal) : SIGTERM;
    std::function<void()> cancel;
    bool walking = false;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        walking = g_generator != nullptr;
        if (walking)
            g_generator->Abort();
        cancel = g_cancel;
    }
    if (!walking) {
        CancelInBackground(std::move(cancel), std::chrono::milliseconds(200));
        std::lock_guard<std::mutex> lock(g_mutex);
        Leave(signal, "");
    }
    const auto start = std::chrono::steady_clock::now();
    CancelInBackground(std::move(cancel), std::chrono::milliseconds(300));
    std::this_thread::sleep_until(start + std::chrono::milliseconds(300));
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        ShutDownSockets(g_output != nullptr ? fileno(g_output) : -1);
    }
    std::this_thread::sleep_until(start + std::chrono::milliseconds(900));
    // The main flow would have exited by now; a driver holds it.
    std::lock_guard<std::mutex> lock(g_mutex);
    Leave(signal, ", and the data source did not give up its running call, so udmlgen left it");
}

} // namespace

void InstallSignalHandlers(std::function<void()> cancel) {
    std::signal(SIGPIPE, SIG_IGN);
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_cancel = std::move(cancel);
    }
    if (pipe(g_pipe) != 0)
        return; // without the pipe, the default action of the signals ends the process
    std::thread(Watch).detach();
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void SetAbortTarget(CUdmlGenerator* generator) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_generator = generator;
    // A signal that came before the generator was known must still stop it.
    if (generator != nullptr && g_signal != 0)
        generator->Abort();
}

void SetPendingOutput(std::FILE* stream, const std::string& temporary, const std::string& partial) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_output = stream;
    g_temporary = temporary;
    g_partial = partial;
}

int ReceivedSignal() {
    return g_signal;
}

} // namespace udmlgen
