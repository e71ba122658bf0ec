// Helpers of the hardening tests.
#include "HardeningSupport.h"

#include <vector>

namespace {

WyString Name(const wchar_t* prefix, int n) {
    return prefix + std::to_wstring(n);
}

MIColumn Column(const MITable& table, const wchar_t* name, WyDataType type, uint32 precision,
                uint16 nullable) {
    MIColumn column;
    column.catalog_ = table.catalog_;
    column.schema_ = table.schema_;
    column.table_ = table.table_;
    column.columnName_ = name;
    column.dataType_ = type;
    column.precision_ = precision;
    column.length_ = precision;
    column.nullable_ = nullable;
    return column;
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

} // namespace

SourceMetadata LargeSource(int catalogs, int schemasPerCatalog, int tablesPerSchema) {
    SourceMetadata source;
    for (int c = 0; c < catalogs; ++c) {
        MICatalog catalog;
        catalog.catalog_ = Name(L"Cat", c);
        source.catalogs.push_back(catalog);
        for (int s = 0; s < schemasPerCatalog; ++s) {
            MISchema schema;
            schema.catalog_ = catalog.catalog_;
            schema.schema_ = Name(L"Schema", s);
            source.schemas.push_back(schema);
            for (int t = 0; t < tablesPerSchema; ++t) {
                MITable table;
                table.catalog_ = catalog.catalog_;
                table.schema_ = schema.schema_;
                table.table_ = Name(L"T", t);
                table.tableType_ = L"TABLE";
                table.remarks_ = L"table {" + std::to_wstring(t) + L"}";
                source.tables.push_back(table);
                source.columns.push_back(Column(table, L"ID", WyInt4Data, 10, 0));
                source.columns.push_back(Column(table, L"ParentID", WyInt4Data, 10, 1));
                source.columns.push_back(Column(table, L"Name", WyVarCharData, 80, 1));
                source.columns.push_back(Column(table, L"Amount", WyDecimalData, 12, 1));
                source.columns.push_back(Column(table, L"Created", WyTimeStampData, 26, 0));
                MIPrimaryKey key;
                key.catalog_ = table.catalog_;
                key.schema_ = table.schema_;
                key.table_ = table.table_;
                key.columnName_ = L"ID";
                key.keySequence_ = 1;
                key.primaryKeyName_ = L"PK_" + table.table_;
                source.primaryKeys.push_back(key);
                if (t > 0) {
                    MIForeignKey foreignKey;
                    foreignKey.pkCatalog_ = foreignKey.fkCatalog_ = table.catalog_;
                    foreignKey.pkSchema_ = foreignKey.fkSchema_ = table.schema_;
                    foreignKey.pkTable_ = Name(L"T", t - 1);
                    foreignKey.pkColumnName_ = L"ID";
                    foreignKey.fkTable_ = table.table_;
                    foreignKey.fkColumnName_ = L"ParentID";
                    foreignKey.keySequence_ = 1;
                    foreignKey.foreignKeyName_ = L"FK_" + table.table_;
                    foreignKey.primaryKeyName_ = L"PK_" + foreignKey.pkTable_;
                    source.foreignKeys.push_back(foreignKey);
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
            cut[i].size() > full[i].size())
            return "the last statement is not a cut-short form of the complete one:\n" + cut[i] +
                   "\ninstead of\n" + full[i];
    }
    return "";
}
