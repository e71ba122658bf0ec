// The rows of one kind of catalog listing for a whole schema, kept grouped by table, so that the
// per-table requests that follow a single bulk read are answered from memory.
#pragma once

#include "import/SearchPattern.h"
#include "platform/WyString.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <vector>

/// The names in `names` that the search pattern `pattern` matches (the empty pattern matches every
/// name), in ascending order. Only the names that can match are visited, so a pattern without "%"
/// costs a few look-ups, not a scan.
template <typename Value>
std::vector<typename std::map<WyString, Value>::const_iterator>
NamesMatching(const std::map<WyString, Value>& names, const WyString& pattern) {
    std::vector<typename std::map<WyString, Value>::const_iterator> out;
    using Pos = typename std::map<WyString, Value>::const_iterator;
    ForEachMatchingName(
        pattern, [&names](const WyString& prefix) { return names.lower_bound(prefix); }, names.end(),
        [](const Pos& at) -> const WyString& { return at->first; },
        [&out](const Pos& at) { out.push_back(at); });
    return out;
}

/// The rows of one (catalog, schema) in the order the driver listed them, grouped by the table
/// they belong to. Rows of one table must arrive one after the other.
template <typename Row> class SchemaRows {
public:
    /// Drops every row and remembers which request the rows will answer.
    void Reset(const WyString& catalog, const WyString& schema) {
        m_catalog = catalog;
        m_schema = schema;
        m_rows.clear();
        m_groups.clear();
        m_byTable.clear();
        m_loaded = false;
    }
    /// Marks the rows as complete: only then do they answer requests.
    void Loaded() { m_loaded = true; }
    bool IsLoaded() const { return m_loaded; }
    bool Holds(const WyString& catalog, const WyString& schema) const {
        return m_loaded && m_catalog == catalog && m_schema == schema;
    }

    /// Adds a row of the table (`catalog`, `schema`, `table`) as the driver reported them.
    void Add(const WyString& catalog, const WyString& schema, const WyString& table, Row row) {
        if (m_groups.empty() || m_groups.back().table != table || m_groups.back().schema != schema ||
            m_groups.back().catalog != catalog) {
            m_byTable[table].push_back(static_cast<uint32_t>(m_groups.size()));
            m_groups.push_back(Group{catalog, schema, table, m_rows.size(), 0});
        }
        m_rows.push_back(std::move(row));
        ++m_groups.back().count;
    }

    /// Calls `visit(catalog, schema, table, row)` for the rows of every table whose name matches
    /// the search pattern `tablePattern` (or equals `tablePattern` when `exact`), tables in the
    /// order they were first added, rows in the order they were added.
    template <typename Visit> void ForTables(const WyString& tablePattern, bool exact, Visit visit) const {
        std::vector<uint32_t> selected;
        if (exact) {
            const auto found = m_byTable.find(tablePattern);
            if (found != m_byTable.end()) {
                selected = found->second;
            }
        } else {
            for (const auto& entry : NamesMatching(m_byTable, tablePattern)) {
                selected.insert(selected.end(), entry->second.begin(), entry->second.end());
            }
        }
        std::sort(selected.begin(), selected.end());
        for (uint32_t index : selected) {
            const Group& group = m_groups[index];
            for (size_t i = group.first; i < group.first + group.count; ++i) {
                visit(group.catalog, group.schema, group.table, m_rows[i]);
            }
        }
    }

    size_t RowCount() const { return m_rows.size(); }
    /// Calls `change(row)` for every row, to complete what was added.
    template <typename Change> void ForEachRow(Change change) {
        for (Row& row : m_rows) {
            change(row);
        }
    }

private:
    struct Group {
        WyString catalog;
        WyString schema;
        WyString table;
        size_t first;
        size_t count;
    };

    WyString m_catalog;
    WyString m_schema;
    bool m_loaded = false;
    std::vector<Row> m_rows;
    std::vector<Group> m_groups;
    std::map<WyString, std::vector<uint32_t>> m_byTable;
};
