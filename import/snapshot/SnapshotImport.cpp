// The snapshot file source. Opening reads the file once and keeps, for the tables, columns,
// primary keys and foreign keys, only runs of records that share their name fields (the columns
// of one table are one run) with the offset where the run starts; names are kept once each. A
// Prepare call selects runs by those names, as the in-memory source selects records, and Get reads
// the records of the selected runs back from the file.
#include "import/snapshot/SnapshotImport.h"

#include "import/SearchPattern.h"
#include "import/snapshot/SnapshotScan.h"

#include "platform/BaseStringUtil.h"
#include "platform/SystemUtility.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace {

constexpr std::string_view kBom = "\xEF\xBB\xBF";

// Longer patterns are matched against every name: the sorted walk recurses once per "_".
constexpr size_t kMaxIndexedPatternLength = 256;

constexpr uint32_t kNoName = UINT32_MAX;

// One read of the file brings in this much: a large window for the one pass over the whole file,
// a small one for each list's records, which are mostly read in file order.
constexpr size_t kScanWindow = 256 * 1024;
constexpr size_t kListWindow = 32 * 1024;

// Whether a name argument selects every name (the generator passes "%" for that).
bool SelectsAll(const WyString& pattern) {
    return pattern.empty() || pattern == L"%";
}

// Every distinct name of the indexed lists, once, with an id; kept sorted too, so that a search
// pattern narrows them one character position at a time, as a trie would. The names lie end to
// end in one array, found through an open-addressing table of ids: a string object and a hash
// node per name would cost several times the name itself.
class NamePool {
public:
    NamePool() : m_starts(1, 0) {}

    uint32_t Intern(const WyString& name) {
        if ((m_starts.size() + 1) * 2 > m_slots.size())
            Grow();
        uint32_t& slot = m_slots[Slot(name)];
        if (slot == kNoName) {
            slot = static_cast<uint32_t>(m_starts.size() - 1);
            m_text.insert(m_text.end(), name.begin(), name.end());
            m_starts.push_back(m_text.size());
        }
        return slot;
    }

    uint32_t Find(const WyString& name) const { return m_slots.empty() ? kNoName : m_slots[Slot(name)]; }

    std::wstring_view Name(uint32_t id) const {
        return std::wstring_view(m_text.data() + m_starts[id], m_starts[id + 1] - m_starts[id]);
    }

    uint32_t Size() const { return static_cast<uint32_t>(m_starts.size() - 1); }

    void Seal() {
        m_text.shrink_to_fit();
        m_starts.shrink_to_fit();
        m_sorted.resize(Size());
        std::iota(m_sorted.begin(), m_sorted.end(), 0u);
        std::sort(m_sorted.begin(), m_sorted.end(),
                  [this](uint32_t a, uint32_t b) { return Name(a) < Name(b); });
    }

    /// The ids of every name `pattern` matches.
    std::vector<uint32_t> Matching(const WyString& pattern) const {
        std::vector<uint32_t> ids;
        if (pattern.find_first_of(L"%_\\") == WyString::npos) {
            if (const uint32_t id = Find(pattern); id != kNoName)
                ids.push_back(id);
        } else if (pattern.size() > kMaxIndexedPatternLength) {
            for (uint32_t id = 0; id < Size(); ++id)
                if (MatchesSearchPattern(pattern, WyString(Name(id))))
                    ids.push_back(id);
        } else {
            Narrow(pattern, 0, 0, m_sorted.size(), 0, ids);
        }
        return ids;
    }

private:
    std::wstring_view Sorted(size_t position) const { return Name(m_sorted[position]); }

    size_t Slot(const WyString& name) const {
        const size_t mask = m_slots.size() - 1;
        size_t slot = std::hash<WyString>()(name) & mask;
        while (m_slots[slot] != kNoName && Name(m_slots[slot]) != name)
            slot = (slot + 1) & mask;
        return slot;
    }

    void Grow() {
        m_slots.assign(std::max<size_t>(1024, m_slots.size() * 2), kNoName);
        const size_t mask = m_slots.size() - 1;
        for (uint32_t id = 0; id < Size(); ++id) {
            size_t slot = std::hash<std::wstring_view>()(Name(id)) & mask;
            while (m_slots[slot] != kNoName)
                slot = (slot + 1) & mask;
            m_slots[slot] = id;
        }
    }

    // Every name in [lo, hi) has the same first `depth` characters, all matching the pattern up to
    // `patternPos`; sorting then orders the range by the character at `depth`, with the name that
    // ends there (if any) first. From a "%" or an escape on, the whole pattern decides.
    void Narrow(const WyString& pattern, size_t patternPos, size_t lo, size_t hi, size_t depth,
                std::vector<uint32_t>& out) const {
        while (lo < hi) {
            if (patternPos == pattern.size()) {
                if (Sorted(lo).size() == depth)
                    out.push_back(m_sorted[lo]);
                return;
            }
            const wchar_t c = pattern[patternPos];
            if (c == L'%' || c == L'\\') {
                for (size_t pos = lo; pos < hi; ++pos)
                    if (MatchesSearchPattern(pattern, WyString(Sorted(pos))))
                        out.push_back(m_sorted[pos]);
                return;
            }
            if (Sorted(lo).size() == depth)
                ++lo;
            if (lo == hi)
                return;
            if (c == L'_') {
                while (lo < hi) {
                    const size_t groupEnd = GroupEnd(lo, hi, depth, Sorted(lo)[depth]);
                    Narrow(pattern, patternPos + 1, lo, groupEnd, depth + 1, out);
                    lo = groupEnd;
                }
                return;
            }
            const auto first =
                std::lower_bound(m_sorted.begin() + static_cast<std::ptrdiff_t>(lo),
                                 m_sorted.begin() + static_cast<std::ptrdiff_t>(hi), c,
                                 [&](uint32_t id, wchar_t ch) { return Name(id)[depth] < ch; });
            lo = static_cast<size_t>(first - m_sorted.begin());
            hi = GroupEnd(lo, hi, depth, c);
            ++patternPos;
            ++depth;
        }
    }

    // The end of the run of names in [lo, hi) whose character at `depth` is `c`.
    size_t GroupEnd(size_t lo, size_t hi, size_t depth, wchar_t c) const {
        const auto last = std::upper_bound(m_sorted.begin() + static_cast<std::ptrdiff_t>(lo),
                                           m_sorted.begin() + static_cast<std::ptrdiff_t>(hi), c,
                                           [&](wchar_t ch, uint32_t id) { return ch < Name(id)[depth]; });
        return static_cast<size_t>(last - m_sorted.begin());
    }

    std::vector<wchar_t> m_text;
    std::vector<size_t> m_starts;
    std::vector<uint32_t> m_slots;
    std::vector<uint32_t> m_sorted;
};

// Consecutive records of one list whose name fields are the same, from the offset of the first.
template <size_t N> struct Run {
    uint64_t begin;
    uint32_t count;
    std::array<uint32_t, N> names;
};

// One indexed list: its runs, and per name field (built on first use) the run numbers ordered by
// that field's name id, then by position.
template <size_t N> class RunList {
public:
    void Add(uint64_t begin, const std::array<uint32_t, N>& names) {
        if (!m_runs.empty() && m_runs.back().names == names && m_runs.back().count < UINT32_MAX)
            ++m_runs.back().count;
        else
            m_runs.push_back(Run<N>{begin, 1, names});
    }

    const Run<N>& operator[](uint32_t run) const { return m_runs[run]; }
    uint32_t Size() const { return static_cast<uint32_t>(m_runs.size()); }

    std::vector<uint32_t> All() const {
        std::vector<uint32_t> runs(m_runs.size());
        std::iota(runs.begin(), runs.end(), 0u);
        return runs;
    }

    /// The runs whose field `field` holds one of `ids`, in list order.
    std::vector<uint32_t> Named(size_t field, const std::vector<uint32_t>& ids) {
        std::vector<uint32_t>& order = m_byField[field];
        if (order.empty() && !m_runs.empty()) {
            order = All();
            std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
                return m_runs[a].names[field] < m_runs[b].names[field];
            });
        }
        std::vector<uint32_t> runs;
        for (uint32_t id : ids) {
            const auto first =
                std::lower_bound(order.begin(), order.end(), id, [&](uint32_t run, uint32_t name) {
                    return m_runs[run].names[field] < name;
                });
            const auto last = std::upper_bound(first, order.end(), id, [&](uint32_t name, uint32_t run) {
                return name < m_runs[run].names[field];
            });
            runs.insert(runs.end(), first, last);
        }
        if (ids.size() > 1)
            std::sort(runs.begin(), runs.end());
        return runs;
    }

private:
    std::vector<Run<N>> m_runs;
    std::array<std::vector<uint32_t>, N> m_byField;
};

// One name argument applied to name ids: a search pattern or an exact name (empty selects
// every name). Neighbouring runs mostly share their names, so the last answer is remembered.
class NameFilter {
public:
    NameFilter(const NamePool& pool, const WyString& argument, bool pattern)
        : m_pool(pool), m_argument(argument), m_pattern(pattern),
          m_any(pattern ? SelectsAll(argument) : argument.empty()),
          m_exactId(pattern || m_any ? kNoName : pool.Find(argument)) {}

    bool operator()(uint32_t id) {
        if (m_any)
            return true;
        if (!m_pattern)
            return id == m_exactId;
        if (id != m_lastId) {
            m_lastAnswer = MatchesSearchPattern(m_argument, WyString(m_pool.Name(id)));
            m_lastId = id;
        }
        return m_lastAnswer;
    }

private:
    const NamePool& m_pool;
    const WyString& m_argument;
    const bool m_pattern, m_any;
    const uint32_t m_exactId;
    uint32_t m_lastId = kNoName;
    bool m_lastAnswer = false;
};

// Selected runs of one list and how far Get has read them. Each list reads through a window of
// its own, so that a walk that takes turns between the lists does not reread the file each time.
struct Cursor {
    std::unique_ptr<snapshot_scan::ByteReader> reader;
    std::vector<uint32_t> runs;
    size_t next = 0;
    uint32_t readInRun = 0;
    uint64_t resume = 0;

    void Select(std::vector<uint32_t> selected) {
        runs = std::move(selected);
        next = 0;
        readInRun = 0;
    }
};

[[noreturn]] void FailFile(const std::string& message) {
    throw ErrorMessage(BaseStringUtil::StringFrom(message.c_str(), SystemUtility::GetMultiByteCodePage()));
}

} // namespace

SourceMetadata ParseSnapshot(const std::string& text, const std::string& fileName) {
    // The byte order mark is skipped rather than parsed so that columns on the first line count
    // from the first real character.
    const uint64_t start = text.compare(0, kBom.size(), kBom) == 0 ? kBom.size() : 0;
    snapshot_scan::ByteReader reader(text, start);
    SourceMetadata metadata;
    snapshot_scan::RecordSink sink(metadata);
    snapshot_scan::ScanDocument(reader, fileName, metadata, sink);
    return metadata;
}

struct SnapshotImport::State {
    std::string path;
    int fd = -1;
    // The header, catalogs, schemas, pick lists and view links, served by the in-memory source.
    std::shared_ptr<SourceMetadata> held = std::make_shared<SourceMetadata>();
    std::unique_ptr<MemoryImport> heldSource;

    NamePool names;
    RunList<4> tables;               // catalog, schema, table, table type
    RunList<3> columns, primaryKeys; // catalog, schema, table
    RunList<6> foreignKeys;          // pk catalog, schema, table, fk catalog, schema, table
    Cursor tableCursor, columnCursor, keyCursor, foreignKeyCursor;
    WyString columnPattern;

    ~State() {
        if (fd >= 0)
            ::close(fd);
    }

    template <class Record, size_t N, class Accept>
    bool Next(const RunList<N>& list, Cursor& cursor, Record& record, Accept accept) {
        while (cursor.next < cursor.runs.size()) {
            const Run<N>& run = list[cursor.runs[cursor.next]];
            if (cursor.readInRun == run.count) {
                ++cursor.next;
                cursor.readInRun = 0;
                continue;
            }
            snapshot_scan::ByteReader& reader = *cursor.reader;
            reader.Seek(cursor.readInRun == 0 ? run.begin : cursor.resume);
            // A record the filter refuses must not reach the caller: a Get that answers false
            // leaves its argument alone.
            Record candidate;
            snapshot_scan::ReadRecord(reader, path, candidate);
            cursor.resume = reader.Offset();
            ++cursor.readInRun;
            if (accept(candidate)) {
                record = std::move(candidate);
                return true;
            }
        }
        return false;
    }
};

namespace {

// Keeps what the source holds in memory, and only names and offsets of the rest.
class IndexSink : public snapshot_scan::RecordSink {
public:
    IndexSink(SourceMetadata& held, NamePool& names, RunList<4>& tables, RunList<3>& columns,
              RunList<3>& keys, RunList<6>& foreignKeys)
        : RecordSink(held), m_names(names), m_tables(tables), m_columns(columns), m_keys(keys),
          m_foreignKeys(foreignKeys) {}

    using RecordSink::Add;
    void Add(MITable&& r, uint64_t begin) override {
        m_tables.Add(begin, {Id(r.catalog_), Id(r.schema_), Id(r.table_), Id(r.tableType_)});
    }
    void Add(MIColumn&& r, uint64_t begin) override {
        m_columns.Add(begin, {Id(r.catalog_), Id(r.schema_), Id(r.table_)});
    }
    void Add(MIPrimaryKey&& r, uint64_t begin) override {
        m_keys.Add(begin, {Id(r.catalog_), Id(r.schema_), Id(r.table_)});
    }
    void Add(MIForeignKey&& r, uint64_t begin) override {
        m_foreignKeys.Add(begin, {Id(r.pkCatalog_), Id(r.pkSchema_), Id(r.pkTable_), Id(r.fkCatalog_),
                                  Id(r.fkSchema_), Id(r.fkTable_)});
    }

private:
    uint32_t Id(const WyString& name) { return m_names.Intern(name); }

    NamePool& m_names;
    RunList<4>& m_tables;
    RunList<3>& m_columns;
    RunList<3>& m_keys;
    RunList<6>& m_foreignKeys;
};

} // namespace

SnapshotImport::SnapshotImport(const std::string& path) : m_state(std::make_unique<State>()) {
    State& s = *m_state;
    s.path = path;
    auto fail = [&path](const char* doing, int error) {
        FailFile(std::string("cannot ") + doing + " snapshot file " + path + ": " + std::strerror(error));
    };
    // Without O_NONBLOCK, opening a pipe would wait for a writer that may never come.
    s.fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (s.fd < 0)
        fail("open", errno);
    struct stat info;
    if (::fstat(s.fd, &info) != 0)
        fail("read", errno);
    if (S_ISDIR(info.st_mode))
        fail("read", EISDIR);
    if (!S_ISREG(info.st_mode))
        FailFile(
            "cannot read snapshot file " + path +
            ": not a regular file (a device or a pipe may never end); save the snapshot to a file and name "
            "that file");
    const uint64_t size = static_cast<uint64_t>(info.st_size);

    char head[3] = {};
    const ssize_t headSize = ::pread(s.fd, head, sizeof head, 0);
    const uint64_t start = headSize == 3 && std::string_view(head, 3) == kBom ? kBom.size() : 0;
    snapshot_scan::ByteReader scanReader(s.fd, size, start, kScanWindow);
    IndexSink sink(*s.held, s.names, s.tables, s.columns, s.primaryKeys, s.foreignKeys);
    snapshot_scan::ScanDocument(scanReader, path, *s.held, sink);
    for (Cursor* cursor : {&s.tableCursor, &s.columnCursor, &s.keyCursor, &s.foreignKeyCursor})
        cursor->reader = std::make_unique<snapshot_scan::ByteReader>(s.fd, size, start, kListWindow);
    s.names.Seal();
    s.heldSource = std::make_unique<MemoryImport>(s.held);
}

SnapshotImport::~SnapshotImport() = default;

int32_t SnapshotImport::CallInterface() const {
    return m_state->held->callInterface;
}

const std::map<WyString, MIColumnPickListFieldVector>& SnapshotImport::PickLists() const {
    return m_state->held->pickLists;
}

void SnapshotImport::OpenConnection(WyString&, WyString&, WyString&, bool) {}

void SnapshotImport::CloseConnection() {}

void SnapshotImport::PrepareForCatalog(WyString& catalog) {
    m_state->heldSource->PrepareForCatalog(catalog);
}

void SnapshotImport::PrepareForSchema(WyString& catalog, WyString& schema) {
    m_state->heldSource->PrepareForSchema(catalog, schema);
}

void SnapshotImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) {
    State& s = *m_state;
    std::vector<uint32_t> candidates = !SelectsAll(table)    ? s.tables.Named(2, s.names.Matching(table))
                                       : !SelectsAll(schema) ? s.tables.Named(1, s.names.Matching(schema))
                                                             : s.tables.All();
    NameFilter catalogFilter(s.names, catalog, true), schemaFilter(s.names, schema, true),
        tableFilter(s.names, table, true);
    uint32_t lastType = kNoName;
    bool typeSelected = false;
    std::vector<uint32_t> selected;
    for (uint32_t run : candidates) {
        const auto& names = s.tables[run].names;
        if (names[3] != lastType) {
            lastType = names[3];
            typeSelected = TableTypeSelected(tableType, WyString(s.names.Name(lastType)));
        }
        if (catalogFilter(names[0]) && schemaFilter(names[1]) && tableFilter(names[2]) && typeSelected)
            selected.push_back(run);
    }
    s.tableCursor.Select(std::move(selected));
}

void SnapshotImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table,
                                      WyString& column) {
    State& s = *m_state;
    std::vector<uint32_t> candidates =
        !SelectsAll(table) ? s.columns.Named(2, s.names.Matching(table)) : s.columns.All();
    NameFilter catalogFilter(s.names, catalog, true), schemaFilter(s.names, schema, true),
        tableFilter(s.names, table, true);
    std::vector<uint32_t> selected;
    for (uint32_t run : candidates) {
        const auto& names = s.columns[run].names;
        if (catalogFilter(names[0]) && schemaFilter(names[1]) && tableFilter(names[2]))
            selected.push_back(run);
    }
    s.columnCursor.Select(std::move(selected));
    s.columnPattern = column;
}

void SnapshotImport::PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) {
    State& s = *m_state;
    std::vector<uint32_t> candidates;
    if (table.empty())
        candidates = s.primaryKeys.All();
    else if (const uint32_t id = s.names.Find(table); id != kNoName)
        candidates = s.primaryKeys.Named(2, {id});
    NameFilter catalogFilter(s.names, catalog, false), schemaFilter(s.names, schema, false),
        tableFilter(s.names, table, false);
    std::vector<uint32_t> selected;
    for (uint32_t run : candidates) {
        const auto& names = s.primaryKeys[run].names;
        if (catalogFilter(names[0]) && schemaFilter(names[1]) && tableFilter(names[2]))
            selected.push_back(run);
    }
    s.keyCursor.Select(std::move(selected));
}

void SnapshotImport::PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                          WyString& fkCatalog, WyString& fkSchema, WyString& fkTable) {
    State& s = *m_state;
    std::vector<uint32_t> candidates;
    if (!fkTable.empty()) {
        if (const uint32_t id = s.names.Find(fkTable); id != kNoName)
            candidates = s.foreignKeys.Named(5, {id});
    } else if (!pkTable.empty()) {
        if (const uint32_t id = s.names.Find(pkTable); id != kNoName)
            candidates = s.foreignKeys.Named(2, {id});
    } else {
        candidates = s.foreignKeys.All();
    }
    NameFilter filters[] = {{s.names, pkCatalog, false}, {s.names, pkSchema, false},
                            {s.names, pkTable, false},   {s.names, fkCatalog, false},
                            {s.names, fkSchema, false},  {s.names, fkTable, false}};
    std::vector<uint32_t> selected;
    for (uint32_t run : candidates) {
        const auto& names = s.foreignKeys[run].names;
        bool accepted = true;
        for (size_t field = 0; field < 6 && accepted; ++field)
            accepted = filters[field](names[field]);
        if (accepted)
            selected.push_back(run);
    }
    s.foreignKeyCursor.Select(std::move(selected));
}

bool SnapshotImport::Get(MICatalog& record) {
    return m_state->heldSource->Get(record);
}

bool SnapshotImport::Get(MISchema& record) {
    return m_state->heldSource->Get(record);
}

bool SnapshotImport::Get(MITable& record) {
    return m_state->Next(m_state->tables, m_state->tableCursor, record, [](const MITable&) { return true; });
}

bool SnapshotImport::Get(MIColumn& record) {
    State& s = *m_state;
    return s.Next(s.columns, s.columnCursor, record, [&](const MIColumn& column) {
        return MatchesSearchPattern(s.columnPattern, column.columnName_);
    });
}

bool SnapshotImport::Get(MIPrimaryKey& record) {
    return m_state->Next(m_state->primaryKeys, m_state->keyCursor, record,
                         [](const MIPrimaryKey&) { return true; });
}

bool SnapshotImport::Get(MIForeignKey& record) {
    return m_state->Next(m_state->foreignKeys, m_state->foreignKeyCursor, record,
                         [](const MIForeignKey&) { return true; });
}

bool SnapshotImport::Get(MIViewLink& record) {
    return m_state->heldSource->Get(record);
}

bool SnapshotImport::GetFeatures(SUFeaturesTable& features, TargetType& targetType) {
    return m_state->heldSource->GetFeatures(features, targetType);
}

bool SnapshotImport::GetIsTavrinMetadata() {
    return m_state->heldSource->GetIsTavrinMetadata();
}

bool SnapshotImport::GetTavrinEAI() {
    return m_state->heldSource->GetTavrinEAI();
}

void SnapshotImport::GetPickList(MIColumn& column) {
    m_state->heldSource->GetPickList(column);
}

void SnapshotImport::PrepareForViewLink() {
    m_state->heldSource->PrepareForViewLink();
}

std::unique_ptr<SnapshotImport> ReadSnapshotFile(const std::string& path) {
    return std::make_unique<SnapshotImport>(path);
}
