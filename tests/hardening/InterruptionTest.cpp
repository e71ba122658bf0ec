// Stops long walks at random moments, from another thread and through the command's signal
// handling: an interrupted walk must return normally and leave output that agrees, statement for
// statement, with the complete output up to the point where it stopped.
#include "HardeningSupport.h"
#include "import/snapshot/SnapshotWriter.h"
#include "support/RunCommand.h"
#include "support/TestGenerator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// Keeps the text and tells another thread, without a data race, that writing has begun.
class WatchedSink : public VirtualTable {
public:
    void putRecord(const char* bytes, size_t length) override {
        m_text.append(bytes, length);
        m_records.fetch_add(1, std::memory_order_release);
    }
    bool Started() const { return m_records.load(std::memory_order_acquire) > 0; }
    std::string Take() {
        m_records.store(0);
        return std::move(m_text);
    }

private:
    std::string m_text;
    std::atomic<size_t> m_records{0};
};

bool RunDatabaseRequest(TestGenerator& generator) {
    WyString error;
    return generator.GenerateUdml(3023, L"", L"", L"", L"", L"", L"", L"", error, -1, 0xffff, false);
}

TEST(Interruption, AbortFromAnotherThreadAtRandomMomentsLeavesConsistentOutput) {
    MemoryImport source(std::make_shared<const SourceMetadata>(LargeSource(2, 3, 350)));
    WatchedSink sink;
    auto generator = TestGenerator::Over(&source, nullptr, L"Big");
    generator->SetOuput(&sink);

    const Clock::time_point start = Clock::now();
    ASSERT_TRUE(RunDatabaseRequest(*generator));
    const auto fullMicros =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
    const std::string complete = sink.Take();
    ASSERT_GT(complete.size(), 1000000u);

    constexpr int kTrials = 200;
    std::mt19937 random(20240611);
    // Every tenth abort may come anywhere in the walk; the others come early, where the walk is
    // in the same kinds of places (listings, column lists, keys) at a tenth of the cost.
    std::uniform_int_distribution<long long> anywhere(0, fullMicros), early(0, fullMicros / 10);
    int interrupted = 0;
    for (int trial = 0; trial < kTrials; ++trial) {
        const auto wait = std::chrono::microseconds(trial % 10 == 0 ? anywhere(random) : early(random));
        SCOPED_TRACE("trial " + std::to_string(trial) + ", abort " + std::to_string(wait.count()) +
                     " us after the first output");
        std::thread aborter([&] {
            while (!sink.Started())
                std::this_thread::yield();
            std::this_thread::sleep_for(wait);
            generator->Abort();
        });
        const bool result = RunDatabaseRequest(*generator);
        aborter.join();
        const std::string partial = sink.Take();

        EXPECT_TRUE(result);
        EXPECT_EQ(generator->m_nDepth, 0);
        const std::string problem = CheckInterruptedOutput(complete, partial);
        EXPECT_EQ(problem, "");
        if (partial != complete)
            ++interrupted;
        if (!problem.empty() || !result)
            break;
    }
    std::cout << kTrials << " interruptions tried, " << interrupted << " cut the walk short (full walk "
              << fullMicros / 1000 << " ms)\n";
    EXPECT_GE(interrupted, kTrials / 2) << "the aborts came too late to test anything";

    // The abort flag belongs to one request: the next one runs to the end.
    ASSERT_TRUE(RunDatabaseRequest(*generator));
    EXPECT_TRUE(sink.Take() == complete);
}

// Runs udmlgen over `snapshot` into `output`, sends `signal` once output has begun, and returns
// the exit status (or 128 + signal when it died of one); standard error goes to `errorFile`.
int InterruptCommand(const std::string& snapshot, const std::string& output, const std::string& errorFile,
                     int signal) {
    std::remove(output.c_str());
    std::remove((output + ".partial").c_str());
    const std::string program = UdmlgenPath();
    const pid_t pid = fork();
    if (pid == 0) {
        const int err = open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int null = open("/dev/null", O_RDWR);
        if (err < 0 || null < 0)
            _exit(126);
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execl(program.c_str(), "udmlgen", "--snapshot", snapshot.c_str(), "--database", "Big", "-o",
              output.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    if (pid < 0)
        return -1;
    // Signal only once the walk is under way (stdio buffers, so wait for a real block of output
    // in the temporary file that becomes the output on success).
    const std::filesystem::path target(output);
    const std::string temporaryPrefix = "." + target.filename().string() + ".";
    auto started = [&] {
        for (const auto& entry : std::filesystem::directory_iterator(target.parent_path())) {
            std::error_code error;
            if (entry.path().filename().string().rfind(temporaryPrefix, 0) == 0 && entry.file_size(error) > 0)
                return true;
        }
        return false;
    };
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(120);
    int status = 0;
    bool exited = false;
    while (Clock::now() < deadline) {
        if (started())
            break;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            exited = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (!exited) {
        kill(pid, signal);
        waitpid(pid, &status, 0);
    }
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

TEST(Interruption, SignalsStopTheCommandWithTheirStatusAndAConsistentFile) {
    const std::string snapshot = ScratchPath("interruption-big.json");
    {
        MemoryImport source(std::make_shared<const SourceMetadata>(LargeSource(2, 3, 200)));
        std::ofstream out(snapshot, std::ios::binary);
        WriteSnapshot(source, ServerInfo::kCLI_ODBC350, out);
        ASSERT_TRUE(out.good());
    }
    ExpectMatchesSnapshotSchema(snapshot);
    const std::string completeFile = ScratchPath("interruption-complete.udml");
    const CommandResult full = RunCommand(ShellQuote(UdmlgenPath()) + " --snapshot " + ShellQuote(snapshot) +
                                          " --database Big -o " + ShellQuote(completeFile));
    ASSERT_EQ(full.exitStatus, 0) << full.standardError;
    const std::string complete = ReadWholeFile(completeFile);

    for (const int signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal == SIGINT ? "SIGINT" : "SIGTERM");
        const std::string output = ScratchPath("interruption-partial.udml");
        const std::string errors = ScratchPath("interruption-stderr.txt");
        const int status = InterruptCommand(snapshot, output, errors, signal);
        EXPECT_EQ(status, 128 + signal);
        EXPECT_NE(ReadWholeFile(errors).find("interrupted"), std::string::npos) << ReadWholeFile(errors);
        // The output is replaced only on success; what was written is kept beside it.
        EXPECT_THROW(ReadWholeFile(output), std::runtime_error);
        const std::string partial = ReadWholeFile(output + ".partial");
        EXPECT_LT(partial.size(), complete.size()) << "the walk ended before the signal came";
        EXPECT_EQ(CheckInterruptedOutput(complete, partial), "");
    }
}

} // namespace
