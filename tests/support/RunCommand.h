// Runs a command line through the shell and collects what it writes, for tests of the
// command-line host and of scripts.
#pragma once

#include <string>

struct CommandResult {
    int exitStatus = -1; // the exit status, or 128 + signal number
    std::string standardOutput;
    std::string standardError;
};

/// Runs `command` with /bin/sh, with `input` (if any) on standard input.
CommandResult RunCommand(const std::string& command);

/// The path of the built udmlgen executable.
std::string UdmlgenPath();
/// A path in the build tree for a test's scratch files; the folder exists.
std::string ScratchPath(const std::string& name);
/// Quotes a text for the shell.
std::string ShellQuote(const std::string& text);
/// The whole content of a file; throws std::runtime_error naming it when it cannot be read.
std::string ReadWholeFile(const std::string& path);
/// A unified diff of two texts, for readable golden-text failures.
std::string DiffTexts(const std::string& expected, const std::string& actual);
/// Fails the current test, naming each field, when a captured snapshot file does not match the
/// published format (docs/snapshot.schema.json).
void ExpectMatchesSnapshotSchema(const std::string& path);
