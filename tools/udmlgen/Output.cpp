// The output file replaced only on success, and the sink that writes, counts and withholds.
#include "Output.h"

#include "Interrupt.h"
#include "Options.h"

#include "platform/BaseStringUtil.h"
#include "platform/ErrorMessage.h"
#include "platform/SystemUtility.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

namespace udmlgen {
namespace {

[[noreturn]] void Fail(const std::string& text) {
    throw ErrorMessage(BaseStringUtil::StringFrom(text.c_str(), SystemUtility::GetMultiByteCodePage()));
}

bool SameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

OutputFile::OutputFile(std::string path) : m_path(std::move(path)) {
    if (m_path == "-")
        m_path.clear();
}

OutputFile::~OutputFile() {
    if (!m_finished && m_file != nullptr)
        Finish(false);
}

std::string OutputFile::Name() const {
    return m_path.empty() ? "standard output" : m_path;
}

void OutputFile::Open() {
    if (m_path.empty()) {
        m_file = stdout;
        SetPendingOutput(m_file, "", "");
        return;
    }
    struct stat existing {};
    const bool exists = stat(m_path.c_str(), &existing) == 0;
    if (exists && !S_ISREG(existing.st_mode)) {
        m_file = std::fopen(m_path.c_str(), "wb");
        if (m_file == nullptr)
            Fail("cannot write " + m_path + ": " + std::strerror(errno));
        SetPendingOutput(m_file, "", "");
        return;
    }
    const size_t slash = m_path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : m_path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
    std::string pattern = folder + "." + name + ".XXXXXX";
    const int descriptor = mkstemp(pattern.data());
    if (descriptor < 0)
        Fail("cannot write " + m_path + ": " + std::strerror(errno));
    // The file keeps its mode when replaced; a new one gets what the umask allows.
    mode_t mode = existing.st_mode & 07777;
    if (!exists) {
        const mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    fchmod(descriptor, mode);
    m_temporary = pattern;
    m_file = fdopen(descriptor, "wb");
    if (m_file == nullptr) {
        const int error = errno;
        close(descriptor);
        unlink(m_temporary.c_str());
        Fail("cannot write " + m_path + ": " + std::strerror(error));
    }
    SetPendingOutput(m_file, m_temporary, m_path + ".partial");
}

bool OutputFile::Write(const char* bytes, size_t length) {
    if (m_errno != 0)
        return false;
    if (std::fwrite(bytes, 1, length, m_file) == length)
        return true;
    m_errno = errno != 0 ? errno : EIO;
    return false;
}

bool OutputFile::Finish(bool succeeded) {
    m_finished = true;
    if (m_file == nullptr)
        return true;
    if (std::fflush(m_file) != 0 && m_errno == 0)
        m_errno = errno;
    // From here a signal has nothing to keep: the file is closed, then replaced or kept below.
    SetPendingOutput(nullptr, "", "");
    if (m_file != stdout && std::fclose(m_file) != 0 && m_errno == 0)
        m_errno = errno;
    m_file = nullptr;
    const bool written = m_errno == 0;
    if (!written)
        std::cerr << "udmlgen: writing " << Name() << " failed: " << std::strerror(m_errno) << "\n";
    if (!m_temporary.empty()) {
        const std::string partial = m_path + ".partial";
        if (succeeded && written) {
            if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0) {
                std::cerr << "udmlgen: cannot replace " << m_path << ": " << std::strerror(errno) << "\n";
                unlink(m_temporary.c_str());
                return false;
            }
        } else if (std::rename(m_temporary.c_str(), partial.c_str()) == 0) {
            std::cerr << "udmlgen: " << m_path << " is left as it was; what was written is in " << partial
                      << "\n";
        } else {
            unlink(m_temporary.c_str());
        }
    }
    return written;
}

void RefuseToReplaceInputs(const std::string& output,
                           const std::vector<std::pair<std::string, std::string>>& inputs) {
    struct stat target {};
    if (output.empty() || output == "-" || stat(output.c_str(), &target) != 0 || !S_ISREG(target.st_mode))
        return;
    for (const auto& [option, path] : inputs) {
        struct stat input {};
        if (stat(path.c_str(), &input) == 0 && SameFile(input, target))
            throw UsageError{"-o " + output + ": that is the " + option +
                             " file this run reads; write elsewhere"};
    }
}

StreamSink::StreamSink(OutputFile& output, bool keepText, std::function<void()> onStop)
    : m_output(output), m_keepText(keepText), m_onStop(std::move(onStop)) {}

void StreamSink::putRecord(const char* bytes, size_t length) {
    if (length == 0 || m_stopped)
        return;
    std::string piece(bytes, length);
    if (!m_inJoin && piece == "\nDECLARE JOIN \"") {
        m_inJoin = true;
        m_joinTail = false;
        m_rejectJoin = false;
        m_join.clear();
    }
    if (!m_inJoin) {
        Emit(piece);
        return;
    }
    // The cardinality and the optional expression follow the table list; then ";" ends the join.
    const bool ends = m_joinTail && piece == ";";
    if (piece == ") AS {} ")
        m_joinTail = true;
    m_join.push_back(std::move(piece));
    if (ends)
        EndJoin();
}

void StreamSink::EndJoin() {
    m_inJoin = false;
    if (!m_rejectJoin) {
        for (const std::string& piece : m_join)
            Emit(piece);
        ++m_counts.joins;
        return;
    }
    // Pieces: head, name, " AS ", name, " EXTERNAL ", link name, " ON TABLES (", ...
    auto between = [this](const char* after, const char* before) {
        std::string text;
        bool inside = false;
        for (const std::string& piece : m_join) {
            if (inside && piece == before)
                break;
            if (inside)
                text += piece;
            if (piece == after)
                inside = true;
        }
        return text;
    };
    m_rejectedJoin = between("\nDECLARE JOIN \"", "\" AS \"");
    m_rejectedLink = between("\" EXTERNAL \"", "\" ON TABLES (");
    m_stopped = true;
    if (m_onStop)
        m_onStop();
}

void StreamSink::Emit(const std::string& piece) {
    if (!m_output.Write(piece.data(), piece.size())) {
        // Nothing more can be written: stop the walk rather than read the rest for nothing.
        m_stopped = true;
        if (m_onStop)
            m_onStop();
        return;
    }
    if (m_keepText)
        m_text += piece;
    auto starts = [&piece](const char* head) { return piece.compare(0, std::strlen(head), head) == 0; };
    if (piece == " TYPE ")
        ++m_counts.columns;
    else if (piece == "\nDECLARE TABLE ")
        ++m_counts.tables;
    else if (piece == "\nDECLARE SCHEMA ")
        ++m_counts.schemas;
    else if (piece == "\nDECLARE CATALOG ")
        ++m_counts.catalogs;
    else if (piece == "\nDECLARE TABLE KEY ")
        ++m_counts.keys;
    else if (starts("\nDECLARE FOREIGN KEY "))
        ++m_counts.foreignKeys;
    else
        return;
    ReportProgress(false);
}

void StreamSink::ReportProgress(bool last) {
    if (!m_progress)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (!last && now - m_lastReport < std::chrono::milliseconds(200))
        return;
    m_lastReport = now;
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    std::fprintf(stderr, "\r\033[K%zu schemas, %zu tables, %.0f tables/s", m_counts.schemas, m_counts.tables,
                 seconds > 0 ? static_cast<double>(m_counts.tables) / seconds : 0.0);
    if (last)
        std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

} // namespace udmlgen
