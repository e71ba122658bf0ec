// Reading a snapshot document in one pass without holding it: the bytes come from memory or from
// a file a window at a time, and each record is handed over, with the offset where it starts in
// the file, as soon as its closing brace is read. Used by ParseSnapshot (which keeps every
// record) and by the file source (which keeps only names and offsets, and reads a record again
// when it is asked for).
#pragma once

#include "import/memory/MemoryImport.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace snapshot_scan {

/// The bytes of a snapshot, served one at a time to the JSON parser. A file is read with pread a
/// window at a time, so memory stays flat however large it is. Counts lines for messages, and
/// turns a `\u` escape of a lone surrogate into `\uFFFD` (same length, so every offset and column
/// stays that of the file).
class ByteReader {
public:
    /// Serves `text` from `start` on; `text` must outlive the reader.
    ByteReader(std::string_view text, uint64_t start);
    /// Serves the first `size` bytes of the open file `fd` (not owned) from `start` on, reading
    /// `window` bytes at a time.
    ByteReader(int fd, uint64_t size, uint64_t start, size_t window);

    uint64_t Offset() const { return m_pos; }
    /// Continues at `offset`, which must be outside any string.
    void Seek(uint64_t offset);
    /// Skips blanks and commas: the separator between two elements of an array.
    void SkipSeparator();

    bool AtEnd() { return !(m_pos >= m_dataBegin && m_pos < m_dataEnd) && !Fill(1); }
    char Peek() const {
        return m_overrideLeft > 0 ? kReplacement[4 - m_overrideLeft] : m_data[m_pos - m_dataBegin];
    }
    void Advance() {
        const char c = Peek();
        if (m_overrideLeft > 0)
            --m_overrideLeft;
        ++m_pos;
        if (c == '\n') {
            ++m_line;
            m_previousLineStart = m_lineStart;
            m_lineStart = m_pos;
        }
        if (m_lexical == Lexical::kOutside) {
            if (c == '"')
                m_lexical = Lexical::kString;
        } else if (m_lexical == Lexical::kString) {
            if (c == '\\')
                m_lexical = Lexical::kEscape;
            else if (c == '"')
                m_lexical = Lexical::kOutside;
        } else {
            m_lexical = Lexical::kString;
            if (c == 'u')
                CheckSurrogate();
        }
    }

    /// The errno of a failed read, or 0.
    int ReadError() const { return m_readError; }
    /// "line L, column C" of an offset at or just before the current one.
    std::string Describe(uint64_t offset) const;

private:
    static constexpr char kReplacement[] = "FFFD";

    // Makes [m_pos, m_pos + count) readable if the input holds it; false when it ends sooner.
    bool Fill(size_t count);
    // After the "u" of an escape: a lone surrogate's four hex digits are read as FFFD.
    void CheckSurrogate();

    const char* m_data = nullptr;
    uint64_t m_dataBegin = 0, m_dataEnd = 0;
    uint64_t m_pos = 0;
    int m_fd = -1;
    uint64_t m_size = 0;
    size_t m_windowSize = 0;
    std::vector<char> m_window;
    int m_readError = 0;

    enum class Lexical { kOutside, kString, kEscape } m_lexical = Lexical::kOutside;
    int m_overrideLeft = 0;
    bool m_lowSurrogatePaired = false;

    uint64_t m_line = 1, m_lineStart = 0, m_previousLineStart = 0;
};

/// Receives the records of the lists as the scan completes them, with the offset of each
/// record's opening brace. By default each is appended to the list it came from.
class RecordSink {
public:
    explicit RecordSink(SourceMetadata& metadata) : m_metadata(metadata) {}
    virtual ~RecordSink() = default;

    virtual void Add(MICatalog&& record, uint64_t) { m_metadata.catalogs.push_back(std::move(record)); }
    virtual void Add(MISchema&& record, uint64_t) { m_metadata.schemas.push_back(std::move(record)); }
    virtual void Add(MITable&& record, uint64_t) { m_metadata.tables.push_back(std::move(record)); }
    virtual void Add(MIColumn&& record, uint64_t) { m_metadata.columns.push_back(std::move(record)); }
    virtual void Add(MIPrimaryKey&& record, uint64_t) { m_metadata.primaryKeys.push_back(std::move(record)); }
    virtual void Add(MIForeignKey&& record, uint64_t) { m_metadata.foreignKeys.push_back(std::move(record)); }
    virtual void Add(MIViewLink&& record, uint64_t) { m_metadata.viewLinks.push_back(std::move(record)); }

protected:
    SourceMetadata& m_metadata;
};

/// Reads a whole document from `reader`: the source header and the pick lists into `metadata`,
/// every record of the lists to `sink`. Throws ErrorMessage naming `fileName` and the place (see
/// ParseSnapshot); invalid JSON and repeated names are found first, then a missing or wrong
/// format, then the first record in file order that does not fit its layout.
void ScanDocument(ByteReader& reader, const std::string& fileName, SourceMetadata& metadata,
                  RecordSink& sink);

/// Reads the record that starts at the reader's offset (after blanks and a comma) into a fresh
/// `record`, leaving the reader just past it. The document was scanned before, so a failure
/// means that the file changed since; it throws ErrorMessage naming `fileName`.
template <class Record> void ReadRecord(ByteReader& reader, const std::string& fileName, Record& record);

} // namespace snapshot_scan
