// Compares what two ODBC sources deliver for every table of a schema, record by record and field
// by field: one source answers from whole-schema reads, the other asks the driver table by table.
#pragma once

#include "import/odbc/OdbcImport.h"
#include "tests/import/SqliteSample.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace odbc_equality {

inline std::string Narrow(const WyString& text) {
    std::string out;
    for (wchar_t c : text) {
        if (c < 0x80)
            out += static_cast<char>(c);
        else
            out += "\\u{" + std::to_string(static_cast<long>(c)) + "}";
    }
    return out;
}

inline std::string Describe(const MIColumn& c) {
    std::ostringstream out;
    out << Narrow(c.catalog_) << '|' << Narrow(c.schema_) << '|' << Narrow(c.table_) << '|'
        << Narrow(c.columnName_) << '|' << c.dataType_ << '|' << Narrow(c.typeName_) << '|' << c.precision_
        << '|' << c.length_ << '|' << c.scale_ << '|' << c.radix_ << '|' << c.nullable_ << '|'
        << Narrow(c.remarks_) << '|' << Narrow(c.fullyQualifiedName_) << '|' << Narrow(c.userName_);
    return out.str();
}
inline std::string Describe(const MIPrimaryKey& k) {
    std::ostringstream out;
    out << Narrow(k.catalog_) << '|' << Narrow(k.schema_) << '|' << Narrow(k.table_) << '|'
        << Narrow(k.columnName_) << '|' << k.keySequence_ << '|' << Narrow(k.primaryKeyName_);
    return out.str();
}
inline std::string Describe(const MIForeignKey& k) {
    std::ostringstream out;
    out << Narrow(k.pkCatalog_) << '|' << Narrow(k.pkSchema_) << '|' << Narrow(k.pkTable_) << '|'
        << Narrow(k.pkColumnName_) << '|' << Narrow(k.fkCatalog_) << '|' << Narrow(k.fkSchema_) << '|'
        << Narrow(k.fkTable_) << '|' << Narrow(k.fkColumnName_) << '|' << k.keySequence_ << '|'
        << k.updateRule_ << '|' << k.deleteRule_ << '|' << Narrow(k.foreignKeyName_) << '|'
        << Narrow(k.primaryKeyName_);
    return out.str();
}

template <typename Record> std::vector<std::string> Read(OdbcImport& source) {
    std::vector<std::string> rows;
    for (const Record& record : sqlite_sample::All<Record>(source))
        rows.push_back(Describe(record));
    return rows;
}

// The records of a listing, or the failure's messages in their place: a driver that refuses a
// request must refuse it on both paths.
template <typename Record, typename Prepare>
std::vector<std::string> Attempt(OdbcImport& source, Prepare prepare) {
    try {
        prepare(source);
        return Read<Record>(source);
    } catch (const ErrorMessage& error) {
        std::vector<std::string> messages{"failed:"};
        for (const WyString& message : error.Messages())
            messages.push_back(Narrow(message));
        return messages;
    }
}

template <typename Record, typename Prepare>
void ExpectSameListing(OdbcImport& fast, OdbcImport& plain, Prepare prepare) {
    const std::vector<std::string> fastRecords = Attempt<Record>(fast, prepare);
    EXPECT_EQ(fastRecords, Attempt<Record>(plain, prepare));
}

/// For every table of the schema, in the generator's order of requests (columns, primary key,
/// foreign keys), expects the two sources to deliver the same records. Returns how many tables
/// were compared.
inline size_t ExpectSameRecords(OdbcImport& fast, OdbcImport& plain, const WyString& catalog,
                                const WyString& schema) {
    WyString c = catalog, s = schema, none;
    plain.PrepareForTable(c, s, none, 0);
    const std::vector<MITable> tables = sqlite_sample::All<MITable>(plain);
    for (const MITable& table : tables) {
        SCOPED_TRACE("table " + Narrow(table.catalog_) + "." + Narrow(table.schema_) + "." +
                     Narrow(table.table_));
        WyString t = table.table_;
        for (const wchar_t* columnPattern : {L"%", L""})
            ExpectSameListing<MIColumn>(fast, plain, [&](OdbcImport& source) {
                WyString column = columnPattern;
                source.PrepareForColumn(c, s, t, column);
            });
        ExpectSameListing<MIPrimaryKey>(fast, plain,
                                        [&](OdbcImport& source) { source.PrepareForPrimaryKey(c, s, t); });
        ExpectSameListing<MIForeignKey>(
            fast, plain, [&](OdbcImport& source) { source.PrepareForForeignKey(none, none, none, c, s, t); });
    }
    return tables.size();
}

} // namespace odbc_equality
