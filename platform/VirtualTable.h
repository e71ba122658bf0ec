// The host's record table: the sink that receives one record per output piece.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class VirtualTable {
public:
    virtual ~VirtualTable() = default;
    /// Appends one record holding `length` bytes at `bytes` (8-bit text, not NUL-terminated).
    virtual void putRecord(const char* bytes, size_t length) {
        // One text and the records' end offsets: a record per piece would cost an allocation per
        // piece, and a whole database is millions of pieces.
        m_text.append(bytes, length);
        m_ends.push_back(m_text.size());
    }

    size_t RecordCount() const { return m_ends.size(); }
    std::string_view Record(size_t index) const {
        const size_t begin = index == 0 ? 0 : m_ends[index - 1];
        return std::string_view(m_text).substr(begin, m_ends[index] - begin);
    }
    /// Every record as a string of its own.
    std::vector<std::string> Records() const {
        std::vector<std::string> records;
        records.reserve(m_ends.size());
        for (size_t index = 0; index < m_ends.size(); ++index)
            records.emplace_back(Record(index));
        return records;
    }
    /// The records joined in order: the text of the statements.
    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
    std::vector<size_t> m_ends;
};
