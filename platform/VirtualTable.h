// The host's record table: the sink that receives one record per output piece.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class VirtualTable {
public:
    virtual ~VirtualTable() = default;
    /// Appends one record holding `length` bytes at `bytes` (8-bit text, not NUL-terminated).
    virtual void putRecord(const char* bytes, size_t length) { m_records.emplace_back(bytes, length); }

    const std::vector<std::string>& Records() const { return m_records; }
    /// The records joined in order: the text of the statements.
    std::string Text() const {
        std::string text;
        for (const std::string& record : m_records)
            text += record;
        return text;
    }

private:
    std::vector<std::string> m_records;
};
