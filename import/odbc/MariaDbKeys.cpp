// The whole-database key queries for MariaDB.
#include "import/odbc/MariaDbKeys.h"

#include "import/odbc/CatalogRows.h"
#include "import/odbc/MariaDbCatalog.h"

#include <algorithm>
#include <cwctype>
#include <map>
#include <set>
#include <tuple>

namespace odbc {

namespace {

// The filter on a table name column, or nothing for every table. BINARY, as the driver compares:
// names may differ only in letter case.
WyString TableFilter(const wchar_t* column, const WyString& table) {
    if (table.empty()) {
        return WyString();
    }
    const WyString literal = MariaDbLiteral(table);
    return WyString(L" AND ") + column + L" = " + literal + L" AND " + column + L" = BINARY " + literal;
}

WyString SchemaFilter(const wchar_t* column, const WyString& catalog) {
    // The plain comparison lets the server open only this database's tables; BINARY keeps the
    // driver's exact match.
    const WyString literal = MariaDbLiteral(catalog);
    return WyString(column) + L" = " + literal + L" AND " + column + L" = BINARY " + literal;
}

WyString Folded(WyString name) {
    for (wchar_t& c : name) {
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    }
    return name;
}

} // namespace

void ReadPrimaryKeysMariaDb(SQLHDBC connection, const WyString& catalog, const WyString& table,
                            SchemaRows<MIPrimaryKey>& rows) {
    const WyString context = L"reading the primary keys of the database " + Quoted(catalog);
    RunQuery(connection,
             L"SELECT TABLE_SCHEMA AS TABLE_CAT, NULL AS TABLE_SCHEM, TABLE_NAME, COLUMN_NAME, "
             L"ORDINAL_POSITION KEY_SEQ, 'PRIMARY' PK_NAME FROM INFORMATION_SCHEMA.COLUMNS WHERE "
             L"COLUMN_KEY = 'pri' AND " +
                 SchemaFilter(L"TABLE_SCHEMA", catalog) + TableFilter(L"TABLE_NAME", table) +
                 L" ORDER BY TABLE_SCHEMA, TABLE_NAME, ORDINAL_POSITION",
             context, [&](Row& row) {
                 MIPrimaryKey key = PrimaryKeyRow(row);
                 const WyString of = key.table_;
                 rows.Add(key.catalog_, key.schema_, of, std::move(key));
             });
}

void ReadForeignKeysMariaDb(SQLHDBC connection, const WyString& catalog, const WyString& table,
                            SchemaRows<MIForeignKey>& rows) {
    const WyString context = L"reading the foreign keys of the database " + Quoted(catalog);
    std::vector<MIForeignKey> found;
    std::map<WyString, std::set<WyString>> referenced; // tables by catalog
    // The constraints' rules are read apart and joined here: the server joins the two views by
    // reading the second once for each row of the first.
    const WyString rule = L" WHEN 'RESTRICT' THEN 1 WHEN 'NO ACTION' THEN 3 WHEN 'CASCADE' THEN 0 WHEN 'SET "
                          L"NULL' THEN 2 WHEN 'SET DEFAULT' THEN 4 END";
    std::map<std::pair<WyString, WyString>, std::pair<uint16, uint16>> rules; // by table and name
    RunQuery(connection,
             L"SELECT TABLE_NAME, CONSTRAINT_NAME, CASE UPDATE_RULE" + rule + L", CASE DELETE_RULE" + rule +
                 L" FROM INFORMATION_SCHEMA.REFERENTIAL_CONSTRAINTS WHERE " +
                 SchemaFilter(L"CONSTRAINT_SCHEMA", catalog) + TableFilter(L"TABLE_NAME", table),
             context, [&](Row& row) {
                 const WyString of = row.Text(1);
                 const WyString name = row.Text(2);
                 rules[{of, name}] = {row.Small(3), row.Small(4)};
             });
    RunQuery(connection,
             L"SELECT A.REFERENCED_TABLE_SCHEMA PKTABLE_CAT, NULL PKTABLE_SCHEM, A.REFERENCED_TABLE_NAME "
             L"PKTABLE_NAME, A.REFERENCED_COLUMN_NAME PKCOLUMN_NAME, A.TABLE_SCHEMA FKTABLE_CAT, NULL "
             L"FKTABLE_SCHEM, A.TABLE_NAME FKTABLE_NAME, A.COLUMN_NAME FKCOLUMN_NAME, "
             L"A.POSITION_IN_UNIQUE_CONSTRAINT KEY_SEQ, 0 UPDATE_RULE, 0 DELETE_RULE, A.CONSTRAINT_NAME "
             L"FK_NAME, 'PRIMARY' PK_NAME, 7 AS DEFERRABILITY FROM INFORMATION_SCHEMA.KEY_COLUMN_USAGE A "
             L"WHERE A.REFERENCED_TABLE_NAME IS NOT NULL AND " +
                 SchemaFilter(L"A.TABLE_SCHEMA", catalog) + TableFilter(L"A.TABLE_NAME", table) +
                 L" ORDER BY FKTABLE_CAT, FKTABLE_SCHEM, FKTABLE_NAME, KEY_SEQ, PKTABLE_NAME",
             context, [&](Row& row) {
                 MIForeignKey key = ForeignKeyRow(row);
                 const auto rulesOf = rules.find({key.fkTable_, key.foreignKeyName_});
                 if (rulesOf == rules.end()) {
                     return; // not a foreign key after all
                 }
                 key.updateRule_ = rulesOf->second.first;
                 key.deleteRule_ = rulesOf->second.second;
                 referenced[key.pkCatalog_].insert(key.pkTable_);
                 found.push_back(std::move(key));
             });
    // The driver lists a reference once for each primary-key column it names, compared ignoring
    // letter case as the server's catalog compares; those columns are read database by database
    // of the referenced side (table by table for one table's keys), each with constant filters.
    std::map<std::tuple<WyString, WyString, WyString>, size_t> primaryColumns;
    auto readPrimaryColumns = [&](const WyString& filter) {
        RunQuery(connection,
                 L"SELECT TABLE_SCHEMA, TABLE_NAME, COLUMN_NAME FROM INFORMATION_SCHEMA.KEY_COLUMN_USAGE "
                 L"WHERE CONSTRAINT_NAME = 'PRIMARY' AND " +
                     filter,
                 context, [&](Row& row) {
                     ++primaryColumns[std::make_tuple(Folded(row.Text(1)), Folded(row.Text(2)),
                                                      Folded(row.Text(3)))];
                 });
    };
    for (const auto& [referencedCatalog, tables] : referenced) {
        if (table.empty()) {
            readPrimaryColumns(SchemaFilter(L"TABLE_SCHEMA", referencedCatalog));
            continue;
        }
        for (const WyString& referencedTable : tables) {
            // Without BINARY: the driver's join matches the referenced table ignoring case.
            readPrimaryColumns(SchemaFilter(L"TABLE_SCHEMA", referencedCatalog) + L" AND TABLE_NAME = " +
                               MariaDbLiteral(referencedTable));
        }
    }
    OrderForeignKeysMariaDb(found);
    for (MIForeignKey& key : found) {
        const auto match = primaryColumns.find(
            std::make_tuple(Folded(key.pkCatalog_), Folded(key.pkTable_), Folded(key.pkColumnName_)));
        if (match == primaryColumns.end()) {
            continue;
        }
        const WyString of = key.fkTable_;
        for (size_t copy = 1; copy < match->second; ++copy) {
            rows.Add(key.fkCatalog_, key.fkSchema_, of, key);
        }
        rows.Add(key.fkCatalog_, key.fkSchema_, of, std::move(key));
    }
}

void OrderForeignKeysMariaDb(std::vector<MIForeignKey>& keys) {
    std::vector<std::pair<WyString, size_t>> folded;
    folded.reserve(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        folded.emplace_back(Folded(keys[i].pkTable_), i);
    }
    std::stable_sort(folded.begin(), folded.end(), [&](const auto& left, const auto& right) {
        const MIForeignKey& a = keys[left.second];
        const MIForeignKey& b = keys[right.second];
        return std::tie(a.fkTable_, a.keySequence_, left.first, a.foreignKeyName_) <
               std::tie(b.fkTable_, b.keySequence_, right.first, b.foreignKeyName_);
    });
    std::vector<MIForeignKey> ordered;
    ordered.reserve(keys.size());
    for (const auto& entry : folded) {
        ordered.push_back(std::move(keys[entry.second]));
    }
    keys = std::move(ordered);
}

} // namespace odbc
