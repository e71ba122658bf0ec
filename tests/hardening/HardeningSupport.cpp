// Helpers of the hardening tests.
#include "HardeningSupport.h"
#include "support/SourceBuilder.h"

#include <vector>

namespace {

WyString Name(const wchar_t* prefix, int n) {
    return prefix + std::to_wstring(n);
}

// Statements begin with "\nDECLARE "; the pieces before the first one (normally none) form a
// piece of their own so that stray text is compared too.
std::vector<std::string> Statements(const std::string& text) {
    static const std::string kHead = "\nDECLARE ";
    std::vector<std::string> statements;
    size_t start = 0;
    while (start < text.size()) {
        size_t next = text.find(kHead, start + 1);
        if (next == std::string::npos)
            next = text.size();
        statements.push_back(text.substr(start, next - start));
        start = next;
    }
    return statements;
}

std::string FirstLine(const std::string& statement) {
    return statement.substr(0, statement.find('\n', 1));
}

bool EndsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Whether each column entry of `cut` (the text after each "\n    ", less its ", " or the end of
// the list) is an entry of `full`: a statement cut short drops entries, but never writes an empty
// one or one its complete form does not have.
bool EntriesAreWhole(const std::string& cut, const std::string& full) {
    static const std::string kEntry = "\n    ";
    for (size_t start = cut.find(kEntry); start != std::string::npos;) {
        start += kEntry.size();
        const size_t next = cut.find(kEntry, start);
        std::string entry = cut.substr(start, next == std::string::npos ? std::string::npos : next - start);
        entry = entry.substr(0, entry.find("\n )"));
        if (entry.size() >= 2 && entry.compare(entry.size() - 2, 2, ", ") == 0)
            entry.resize(entry.size() - 2);
        if (entry.empty() || full.find(kEntry + entry) == std::string::npos)
            return false;
        start = next;
    }
    return true;
}

} // namespace

SourceMetadata LargeSource(int catalogs, int schemasPerCatalog, int tablesPerSchema) {
    SourceMetadata source;
    for (int c = 0; c < catalogs; ++c) {
        source.catalogs.push_back(Catalog(Name(L"Cat", c)));
        for (int s = 0; s < schemasPerCatalog; ++s) {
            source.schemas.push_back(Schema(Name(L"Cat", c), Name(L"Schema", s)));
            for (int t = 0; t < tablesPerSchema; ++t) {
                const TablePath path{Name(L"Cat", c), Name(L"Schema", s), Name(L"T", t)};
                source.tables.push_back(Table(path, L"", L"table {" + std::to_wstring(t) + L"}"));
                source.columns.push_back(Column(path, L"ID", WyInt4Data, 10, 0));
                source.columns.push_back(Column(path, L"ParentID", WyInt4Data, 10, 1));
                source.columns.push_back(Column(path, L"Name", WyVarCharData, 80, 1));
                source.columns.push_back(Column(path, L"Amount", WyDecimalData, 12, 1));
                source.columns.push_back(Column(path, L"Created", WyTimeStampData, 26, 0));
                source.primaryKeys.push_back(PrimaryKey(path, L"ID", L"PK_" + path.table));
                if (t > 0) {
                    source.foreignKeys.push_back(ForeignKey(path, L"ParentID", Name(L"T", t - 1),
                                                            L"FK_" + path.table, L"PK_" + Name(L"T", t - 1)));
                    source.foreignKeys.back().pkColumnName_ = L"ID";
                }
            }
        }
    }
    return source;
}

std::string CheckInterruptedOutput(const std::string& complete, const std::string& partial) {
    const std::vector<std::string> full = Statements(complete);
    const std::vector<std::string> cut = Statements(partial);
    if (cut.size() > full.size())
        return "the interrupted output has " + std::to_string(cut.size()) +
               " statements, the complete one only " + std::to_string(full.size());
    for (size_t i = 0; i < cut.size(); ++i) {
        if (cut[i] == full[i])
            continue;
        if (i + 1 < cut.size())
            return "statement " + std::to_string(i + 1) + " differs before the end of the output:\n" +
                   cut[i] + "\ninstead of\n" + full[i];
        const std::string head = FirstLine(full[i]);
        if (cut[i].compare(0, head.size(), head) != 0 || !EndsWith(cut[i], ";\n") ||
            !EntriesAreWhole(cut[i], full[i]))
            return "the last statement is not a cut-short form of the complete one:\n" + cut[i] +
                   "\ninstead of\n" + full[i];
    }
    return "";
}
