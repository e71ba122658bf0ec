// Where udmlgen's text goes: standard output, or a file that is replaced only when the run
// succeeds; and the sink that hands the generator's pieces to it, counting what it writes.
#pragma once

#include "platform/VirtualTable.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace udmlgen {

/// The output of one run. A path other than "" or "-" is written through a temporary file beside
/// it, created by Open (so a run that fails earlier leaves the file as it was) and renamed onto
/// the path by Finish(true); Finish(false) keeps it as PATH.partial instead. A path that names
/// something other than a regular file (a device, a pipe) is written in place.
class OutputFile {
public:
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Throws ErrorMessage naming the file and the reason when it cannot be created.
    void Open();
    /// Writes all of it, or remembers the first failure's reason; returns false on failure.
    bool Write(const char* bytes, size_t length);
    bool Failed() const { return m_errno != 0; }
    /// "standard output" or the path.
    std::string Name() const;
    /// Flushes and closes, then replaces the path (succeeded) or keeps PATH.partial, naming it on
    /// standard error. Returns false, after naming the file and the reason on standard error,
    /// when writing failed; the run has then failed.
    bool Finish(bool succeeded);

private:
    std::string m_path;
    std::string m_temporary; // empty when writing in place
    std::FILE* m_file = nullptr;
    int m_errno = 0;
    bool m_finished = false;
};

/// Throws UsageError when `output` is one of the files the run reads: replacing it would lose
/// the input the output is made from.
void RefuseToReplaceInputs(const std::string& output,
                           const std::vector<std::pair<std::string, std::string>>& inputs);

/// How many objects of each kind went to the output.
struct Counts {
    size_t catalogs = 0, schemas = 0, tables = 0, columns = 0, keys = 0, foreignKeys = 0, joins = 0;
};

/// The generator's sink: each piece goes to the output at once, so memory stays flat however
/// large the source. A join statement is held back until its last piece, so that a join the
/// generator reports as inconsistent (RejectCurrentJoin) never reaches the output; after that
/// nothing more is written. It keeps the text when the request must be read back.
class StreamSink : public VirtualTable {
public:
    StreamSink(OutputFile& output, bool keepText, std::function<void()> onStop);

    void putRecord(const char* bytes, size_t length) override;
    /// Called while a join statement is being written: it is withheld, and the output ends.
    void RejectCurrentJoin() { m_rejectJoin = true; }
    /// The external name of the withheld join's view link, and the join's own name.
    const std::string& RejectedLink() const { return m_rejectedLink; }
    const std::string& RejectedJoin() const { return m_rejectedJoin; }
    bool Stopped() const { return m_stopped; }

    void EnableProgress() { m_progress = true; }
    void ReportProgress(bool last);
    const std::string& KeptText() const { return m_text; }
    const Counts& Written() const { return m_counts; }

private:
    void Emit(const std::string& piece);
    void EndJoin();

    OutputFile& m_output;
    bool m_keepText;
    std::function<void()> m_onStop;
    bool m_stopped = false;
    std::string m_text;
    Counts m_counts;

    std::vector<std::string> m_join; // pieces of the join being written
    bool m_inJoin = false;
    bool m_joinTail = false; // past the join's table list: its ";" ends it
    bool m_rejectJoin = false;
    std::string m_rejectedLink, m_rejectedJoin;

    bool m_progress = false;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_lastReport;
};

} // namespace udmlgen
