// The whole-database catalog queries for MariaDB.
#include "import/odbc/MariaDbDatabase.h"

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

// The select list of MariaDB Connector/ODBC 3.1's SQLColumns query, as it sends it.
const wchar_t* const kColumnsSelect =
    L"SELECT TABLE_SCHEMA AS TABLE_CAT, NULL AS TABLE_SCHEM, TABLE_NAME, COLUMN_NAME, CASE DATA_TYPE "
    L" WHEN 'bit' THEN @dt:= IF(NUMERIC_PRECISION=1,(-7), (-2))  WHEN 'tinyint' THEN @dt:=(-6)  WHEN "
    L"'smallint' THEN @dt:=5  WHEN 'year' THEN @dt:= 5  WHEN 'mediumint' THEN @dt:=4  WHEN 'int' THEN"
    L" @dt:=4  WHEN 'bigint' THEN @dt:=(-5)  WHEN 'blob' THEN @dt:=(-4)  WHEN 'tinyblob' THEN @dt:=(-"
    L"4)  WHEN 'mediumblob' THEN @dt:=(-4)  WHEN 'longblob' THEN @dt:=(-4)  WHEN 'decimal' THEN @dt:="
    L"3  WHEN 'float' THEN @dt:=IF(NUMERIC_SCALE IS NULL,7, 3)  WHEN 'double' THEN @dt:=IF(NUMERIC_SC"
    L"ALE IS NULL,8, 3)  WHEN 'binary' THEN @dt:=(-2)  WHEN 'varbinary' THEN @dt:=(-3)  WHEN 'text' T"
    L"HEN @dt:=(-10)  WHEN 'tinytext' THEN @dt:=(-10)  WHEN 'mediumtext' THEN @dt:=(-10)  WHEN 'longt"
    L"ext' THEN @dt:=(-10)  WHEN 'char' THEN @dt:=(-8)  WHEN 'enum' THEN @dt:=(-8)  WHEN 'set' THEN @"
    L"dt:=(-8)  WHEN 'varchar' THEN @dt:=(-9)  WHEN 'date' THEN @dt:=91  WHEN 'time' THEN @dt:=92  WH"
    L"EN 'datetime' THEN @dt:=93  WHEN 'timestamp' THEN @dt:=93  ELSE @dt:=(-4)END AS DATA_TYPE, UCAS"
    L"E(IF(COLUMN_TYPE LIKE '%(%)%',  CONCAT(SUBSTRING(COLUMN_TYPE,1, LOCATE('(',COLUMN_TYPE) - 1 ), "
    L"SUBSTRING(COLUMN_TYPE,1+locate(')',COLUMN_TYPE))), COLUMN_TYPE )) AS TYPE_NAME, CAST(CASE  WHEN"
    L" DATA_TYPE = 'bit' THEN @ColSize:=((NUMERIC_PRECISION + 7) / 8)   WHEN DATA_TYPE in ('tinyint',"
    L" 'smallint', 'mediumint', 'int','bigint', 'decimal') THEN @ColSize:=NUMERIC_PRECISION   WHEN DA"
    L"TA_TYPE = 'float' THEN if(NUMERIC_SCALE IS NULL, @ColSize:=7, @ColSize:=NUMERIC_PRECISION)  WHE"
    L"N DATA_TYPE = 'double' THEN if(NUMERIC_SCALE IS NULL, @ColSize:=15, @ColSize:=NUMERIC_PRECISION"
    L")  WHEN DATA_TYPE = 'date' THEN @ColSize:=10  WHEN DATA_TYPE = 'time' THEN @ColSize:=8  WHEN DA"
    L"TA_TYPE = 'year' THEN @ColSize:=4  WHEN DATA_TYPE in ('timestamp', 'datetime') THEN @ColSize:=1"
    L"9   ELSE @ColSize:=CHARACTER_MAXIMUM_LENGTH END AS UNSIGNED) AS COLUMN_SIZE,@tol:=CAST(CASE @dt"
    L"  WHEN (-7) THEN 1   WHEN (-6) THEN 1   WHEN 5 THEN 2   WHEN 4 THEN IF(DATA_TYPE='mediumint',3,"
    L"4)   WHEN (-5) THEN 20   WHEN 7 THEN 4   WHEN 6 THEN 8   WHEN 8 THEN 8   WHEN 9 THEN 6   WHEN 9"
    L"1 THEN 6   WHEN 10 THEN 6   WHEN 92 THEN 6   WHEN 11 THEN 16   WHEN 93 THEN 16   WHEN (-11) THE"
    L"N 16   WHEN 3 THEN @ColSize + IF(COLUMN_TYPE LIKE '%unsigned',1,2)   WHEN (-2) THEN IF(DATA_TYP"
    L"E='bit', CAST(((NUMERIC_PRECISION + 7) / 8) AS SIGNED), CHARACTER_OCTET_LENGTH)   WHEN (-3) THE"
    L"N CHARACTER_OCTET_LENGTH   WHEN (-4) THEN CHARACTER_OCTET_LENGTH   ELSE CHARACTER_MAXIMUM_LENGT"
    L"H*4 END AS SIGNED) AS BUFFER_LENGTH, NUMERIC_SCALE DECIMAL_DIGITS, IF(CHARACTER_OCTET_LENGTH IS"
    L" NOT NULL, NULL, 10) AS NUM_PREC_RADIX,IF(DATA_TYPE='timestamp', 1, IF(IS_NULLABLE='YES',1,IF(E"
    L"XTRA='auto_increment', 1, 0))) AS NULLABLE, COLUMN_COMMENT AS REMARKS,COLUMN_DEFAULT AS COLUMN_"
    L"DEF,CAST(CASE  WHEN DATA_TYPE = 'date' THEN 9  WHEN DATA_TYPE = 'time' THEN 9  WHEN DATA_TYPE ="
    L" 'datetime' THEN 9  WHEN DATA_TYPE = 'timestamp' THEN 9 ELSE @dt END AS SIGNED) SQL_DATA_TYPE,C"
    L"AST(CASE  WHEN DATA_TYPE = 'date' THEN 1  WHEN DATA_TYPE = 'time' THEN 2  WHEN DATA_TYPE = 'dat"
    L"etime' THEN 3  WHEN DATA_TYPE = 'timestamp' THEN 3 ELSE NULL END AS SIGNED) SQL_DATETIME_SUB,IF"
    L"(CHARACTER_OCTET_LENGTH IS NOT NULL, @tol, IF(DATA_TYPE='bit' AND NUMERIC_PRECISION =1, NULL, C"
    L"AST((NUMERIC_PRECISION + 7)/8 AS SIGNED))) AS CHAR_OCTET_LENGTH, ORDINAL_POSITION,IF(DATA_TYPE="
    L"'timestamp', 'YES', IF(IS_NULLABLE='YES','YES',IF(EXTRA='auto_increment', 'YES', 'NO'))) AS IS_"
    L"NULLABLE";

void ReadColumnsMariaDb(SQLHDBC connection, const WyString& catalog, ColumnShapes& shapes,
                        SchemaRows<CachedColumn>& rows, SchemaFacts& facts) {
    const WyString context = L"reading the columns of every table of the database " + Quoted(catalog);
    RunQuery(connection,
             WyString(kColumnsSelect) + L", COLUMN_TYPE FROM INFORMATION_SCHEMA.COLUMNS WHERE " +
                 SchemaFilter(L"TABLE_SCHEMA", catalog) +
                 L" ORDER BY TABLE_SCHEMA, TABLE_NAME, ORDINAL_POSITION",
             context, [&](Row& row) {
                 TableRef table;
                 CachedColumn column;
                 ColumnShape shape;
                 ColumnRow(row, table, column, shape);
                 facts.columns[{table.table, column.name}].type = ParseNativeType(row.Text(19));
                 column.shape = shapes.Of(shape);
                 rows.Add(table.catalog, table.schema, table.table, std::move(column));
             });
}

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
