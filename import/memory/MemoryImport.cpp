// The in-memory import source. Listings are computed at Prepare time as row numbers into the
// shared, immutable metadata; per-table requests go through indexes built on first use, so a
// generator walking tens of thousands of tables does not rescan every list for each one.
#include "import/memory/MemoryImport.h"

#include "import/SearchPattern.h"

#include <algorithm>
#include <optional>
#include <unordered_map>

namespace {

// Whether a name argument is better served by a scan than by the index: it selects every name
// (the generator passes "%" for that).
bool ScanServes(const WyString& pattern) {
    return pattern.empty() || pattern == L"%";
}

// The rows of one list grouped by one name field. The distinct names are also kept sorted, so
// that a search pattern visits only the names that can match.
struct NameIndex {
    std::unordered_map<WyString, std::vector<size_t>> rowsByName;
    std::vector<WyString> sortedNames;

    template <class Record, class NameOf> NameIndex(const std::vector<Record>& list, NameOf nameOf) {
        for (size_t row = 0; row < list.size(); ++row)
            rowsByName[nameOf(list[row])].push_back(row);
        sortedNames.reserve(rowsByName.size());
        for (const auto& entry : rowsByName)
            sortedNames.push_back(entry.first);
        std::sort(sortedNames.begin(), sortedNames.end());
    }

    const std::vector<size_t>* RowsNamed(const WyString& name) const {
        auto found = rowsByName.find(name);
        return found == rowsByName.end() ? nullptr : &found->second;
    }

    /// Appends the sorted-name positions of every name that `pattern` matches.
    void CollectMatches(const WyString& pattern, std::vector<size_t>& out) const {
        using Pos = std::vector<WyString>::const_iterator;
        ForEachMatchingName(
            pattern,
            [this](const WyString& prefix) {
                return std::lower_bound(sortedNames.begin(), sortedNames.end(), prefix);
            },
            sortedNames.end(), [](const Pos& at) -> const WyString& { return *at; },
            [this, &out](const Pos& at) { out.push_back(static_cast<size_t>(at - sortedNames.begin())); });
    }
};

// One search pattern applied to a run of records. The name fields of neighbouring records mostly
// repeat (every column of a table carries its catalog, schema and table), and real names often
// hold "_", which makes the pattern a wildcard one; remembering the last answer matches it once
// per distinct name instead of once per record.
class PatternFilter {
public:
    explicit PatternFilter(const WyString& pattern)
        : m_pattern(pattern), m_any(pattern.empty() || pattern == L"%") {}

    bool operator()(const WyString& name) {
        if (m_any)
            return true;
        if (!m_known || name != m_lastName) {
            m_lastAnswer = MatchesSearchPattern(m_pattern, name);
            m_lastName = name;
            m_known = true;
        }
        return m_lastAnswer;
    }

private:
    const WyString& m_pattern;
    const bool m_any;
    bool m_known = false;
    bool m_lastAnswer = false;
    WyString m_lastName;
};

bool ExactOrAny(const WyString& argument, const WyString& name) {
    return argument.empty() || argument == name;
}

// Rows of `list` that `accept` takes, in list order: all of them, or those among `candidates`.
template <class Record, class Accept>
std::vector<size_t> AcceptedRows(const std::vector<Record>& list, const std::vector<size_t>* candidates,
                                 Accept accept) {
    std::vector<size_t> rows;
    if (candidates == nullptr) {
        for (size_t row = 0; row < list.size(); ++row)
            if (accept(list[row]))
                rows.push_back(row);
    } else {
        rows.reserve(candidates->size());
        for (size_t row : *candidates)
            if (accept(list[row]))
                rows.push_back(row);
    }
    return rows;
}

// Rows whose name a non-empty search pattern matches, in list order.
std::vector<size_t> PatternCandidates(const NameIndex& index, const WyString& pattern) {
    std::vector<size_t> namePositions;
    index.CollectMatches(pattern, namePositions);
    if (namePositions.size() == 1)
        return *index.RowsNamed(index.sortedNames[namePositions.front()]);
    std::vector<size_t> rows;
    for (size_t position : namePositions) {
        const std::vector<size_t>& named = *index.RowsNamed(index.sortedNames[position]);
        rows.insert(rows.end(), named.begin(), named.end());
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

template <class Record>
bool Deliver(const std::vector<Record>& list, const std::vector<size_t>& rows, size_t& next, Record& record) {
    if (next >= rows.size())
        return false;
    record = list[rows[next++]];
    return true;
}

} // namespace

struct MemoryImport::Index {
    std::optional<NameIndex> tablesByName, columnsByTable, keysByTable, foreignKeysByFkTable,
        foreignKeysByPkTable;
};

MemoryImport::MemoryImport(std::shared_ptr<const SourceMetadata> metadata)
    : m_metadata(metadata ? std::move(metadata) : std::make_shared<const SourceMetadata>()),
      m_index(std::make_unique<Index>()) {}

MemoryImport::~MemoryImport() = default;

void MemoryImport::OpenConnection(WyString&, WyString&, WyString&, bool) {}

void MemoryImport::CloseConnection() {}

void MemoryImport::PrepareForCatalog(WyString& catalog) {
    PatternFilter catalogFilter(catalog);
    m_catalogRows = AcceptedRows(m_metadata->catalogs, nullptr,
                                 [&](const MICatalog& record) { return catalogFilter(record.catalog_); });
    m_catalogNext = 0;
}

void MemoryImport::PrepareForSchema(WyString& catalog, WyString& schema) {
    PatternFilter catalogFilter(catalog), schemaFilter(schema);
    m_schemaRows = AcceptedRows(m_metadata->schemas, nullptr, [&](const MISchema& record) {
        return catalogFilter(record.catalog_) && schemaFilter(record.schema_);
    });
    m_schemaNext = 0;
}

void MemoryImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) {
    const auto& tables = m_metadata->tables;
    PatternFilter catalogFilter(catalog), schemaFilter(schema);
    // Rows found through the index already match the table pattern.
    bool checkTable = true;
    auto accept = [&](const MITable& record) {
        return catalogFilter(record.catalog_) && schemaFilter(record.schema_) &&
               (!checkTable || MatchesSearchPattern(table, record.table_)) &&
               TableTypeSelected(tableType, record.tableType_);
    };
    if (ScanServes(table)) {
        m_tableRows = AcceptedRows(tables, nullptr, accept);
    } else {
        checkTable = false;
        if (!m_index->tablesByName)
            m_index->tablesByName.emplace(tables, [](const MITable& record) { return record.table_; });
        const std::vector<size_t> candidates = PatternCandidates(*m_index->tablesByName, table);
        m_tableRows = AcceptedRows(tables, &candidates, accept);
    }
    m_tableNext = 0;
}

void MemoryImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) {
    const auto& columns = m_metadata->columns;
    PatternFilter catalogFilter(catalog), schemaFilter(schema), tableFilter(table);
    bool checkTable = true;
    auto accept = [&](const MIColumn& record) {
        return catalogFilter(record.catalog_) && schemaFilter(record.schema_) &&
               (!checkTable || tableFilter(record.table_)) &&
               MatchesSearchPattern(column, record.columnName_);
    };
    if (ScanServes(table)) {
        m_columnRows = AcceptedRows(columns, nullptr, accept);
    } else {
        checkTable = false;
        if (!m_index->columnsByTable)
            m_index->columnsByTable.emplace(columns, [](const MIColumn& record) { return record.table_; });
        const std::vector<size_t> candidates = PatternCandidates(*m_index->columnsByTable, table);
        m_columnRows = AcceptedRows(columns, &candidates, accept);
    }
    m_columnNext = 0;
}

void MemoryImport::PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) {
    const auto& keys = m_metadata->primaryKeys;
    auto accept = [&](const MIPrimaryKey& record) {
        return ExactOrAny(catalog, record.catalog_) && ExactOrAny(schema, record.schema_) &&
               ExactOrAny(table, record.table_);
    };
    if (table.empty()) {
        m_keyRows = AcceptedRows(keys, nullptr, accept);
    } else {
        if (!m_index->keysByTable)
            m_index->keysByTable.emplace(keys, [](const MIPrimaryKey& record) { return record.table_; });
        const std::vector<size_t>* candidates = m_index->keysByTable->RowsNamed(table);
        m_keyRows = candidates ? AcceptedRows(keys, candidates, accept) : std::vector<size_t>();
    }
    m_keyNext = 0;
}

void MemoryImport::PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                        WyString& fkCatalog, WyString& fkSchema, WyString& fkTable) {
    const auto& keys = m_metadata->foreignKeys;
    auto accept = [&](const MIForeignKey& record) {
        return ExactOrAny(pkCatalog, record.pkCatalog_) && ExactOrAny(pkSchema, record.pkSchema_) &&
               ExactOrAny(pkTable, record.pkTable_) && ExactOrAny(fkCatalog, record.fkCatalog_) &&
               ExactOrAny(fkSchema, record.fkSchema_) && ExactOrAny(fkTable, record.fkTable_);
    };
    const std::vector<size_t>* candidates = nullptr;
    if (!fkTable.empty()) {
        if (!m_index->foreignKeysByFkTable)
            m_index->foreignKeysByFkTable.emplace(keys,
                                                  [](const MIForeignKey& record) { return record.fkTable_; });
        candidates = m_index->foreignKeysByFkTable->RowsNamed(fkTable);
    } else if (!pkTable.empty()) {
        if (!m_index->foreignKeysByPkTable)
            m_index->foreignKeysByPkTable.emplace(keys,
                                                  [](const MIForeignKey& record) { return record.pkTable_; });
        candidates = m_index->foreignKeysByPkTable->RowsNamed(pkTable);
    }
    if (candidates == nullptr && (!fkTable.empty() || !pkTable.empty()))
        m_foreignKeyRows.clear();
    else
        m_foreignKeyRows = AcceptedRows(keys, candidates, accept);
    m_foreignKeyNext = 0;
}

bool MemoryImport::Get(MICatalog& record) {
    return Deliver(m_metadata->catalogs, m_catalogRows, m_catalogNext, record);
}

bool MemoryImport::Get(MISchema& record) {
    return Deliver(m_metadata->schemas, m_schemaRows, m_schemaNext, record);
}

bool MemoryImport::Get(MITable& record) {
    return Deliver(m_metadata->tables, m_tableRows, m_tableNext, record);
}

bool MemoryImport::Get(MIColumn& record) {
    return Deliver(m_metadata->columns, m_columnRows, m_columnNext, record);
}

bool MemoryImport::Get(MIPrimaryKey& record) {
    return Deliver(m_metadata->primaryKeys, m_keyRows, m_keyNext, record);
}

bool MemoryImport::Get(MIForeignKey& record) {
    return Deliver(m_metadata->foreignKeys, m_foreignKeyRows, m_foreignKeyNext, record);
}

bool MemoryImport::Get(MIViewLink& record) {
    const auto& links = m_metadata->viewLinks;
    if (!m_viewLinksPrepared || m_viewLinkNext >= links.size())
        return false;
    record = links[m_viewLinkNext++];
    return true;
}

bool MemoryImport::GetFeatures(SUFeaturesTable&, TargetType& targetType) {
    targetType = static_cast<TargetType>(m_metadata->targetType);
    return true;
}

bool MemoryImport::GetIsTavrinMetadata() {
    return m_metadata->packagedApplication;
}

bool MemoryImport::GetTavrinEAI() {
    return m_metadata->eai;
}

void MemoryImport::GetPickList(MIColumn& column) {
    auto found = m_metadata->pickLists.find(column.picklistName);
    if (found != m_metadata->pickLists.end())
        column.pickListFieldName = found->second;
}

void MemoryImport::PrepareForViewLink() {
    m_viewLinksPrepared = true;
    m_viewLinkNext = 0;
}
