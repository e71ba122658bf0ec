// Command runner of the host and script tests.
#include "RunCommand.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

std::string ShellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string ScratchPath(const std::string& name) {
    // A folder per test process: CTest runs the cases of one suite as parallel processes, and a
    // shared file name would let one case read what another is writing.
    const std::string parent = std::string(UDML_BINARY_DIR) + "/test-scratch";
    const std::string folder = parent + "/" + std::to_string(getpid());
    mkdir(parent.c_str(), 0755);
    mkdir(folder.c_str(), 0755);
    return folder + "/" + name;
}

std::string UdmlgenPath() {
    return std::string(UDML_BINARY_DIR) + "/bin/udmlgen";
}

CommandResult RunCommand(const std::string& command) {
    static std::atomic<int> counter{0}; // the fault sweeps run commands from several threads
    const std::string errFile =
        ScratchPath("stderr-" + std::to_string(getpid()) + "-" + std::to_string(++counter));
    CommandResult result;
    std::FILE* pipe = popen((command + " 2>" + ShellQuote(errFile)).c_str(), "r");
    if (!pipe)
        throw std::runtime_error("cannot run " + command);
    char buffer[65536];
    size_t count;
    while ((count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        result.standardOutput.append(buffer, count);
    const int status = pclose(pipe);
    if (WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        result.exitStatus = 128 + WTERMSIG(status);
    try {
        result.standardError = ReadWholeFile(errFile);
    } catch (const std::runtime_error&) {
    }
    std::remove(errFile.c_str());
    return result;
}

std::string DiffTexts(const std::string& expected, const std::string& actual) {
    const std::string expectedFile = ScratchPath("diff-expected"), actualFile = ScratchPath("diff-actual");
    std::ofstream(expectedFile, std::ios::binary) << expected;
    std::ofstream(actualFile, std::ios::binary) << actual;
    return RunCommand("diff -u " + ShellQuote(expectedFile) + " " + ShellQuote(actualFile) + " | head -n 80")
        .standardOutput;
}

void ExpectMatchesSnapshotSchema(const std::string& path) {
    const CommandResult check =
        RunCommand("python3 " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/scripts/check-snapshot.py") +
                   " " + ShellQuote(path));
    EXPECT_EQ(0, check.exitStatus) << check.standardError;
}
