// The PostgreSQL catalog queries, and the whole-schema column read built on them.
#include "import/odbc/PostgresCatalog.h"

#include "import/odbc/CatalogRows.h"

namespace odbc {

namespace {

// What psqlODBC's SQLColumns computes from a column's type depends on these attributes of the
// column alone (besides the connection's settings), as its own catalog query reads them; the
// default matters only as far as it makes the column auto-incrementing. Defaults are looked up
// column by column (a join hashes every default of the catalog for each schema), and deparsed
// without their table unless they refer to columns (a generated column's): with the table, the
// server opens every table of the schema, which costs more than the rest of the query.
const wchar_t* const kPgColumnQuery =
    L"select n.nspname, c.relname, a.attname, concat_ws(chr(1), a.atttypid, t.typname, a.attlen, "
    L"a.atttypmod, a.attnotnull, c.relhasrules, c.relkind, case t.typtype when 'd' then t.typbasetype "
    L"else 0 end, t.typtypmod, a.attidentity, c.relhassubclass, a.atthasdef and coalesce((select "
    L"pg_catalog.pg_get_expr(d.adbin, case when d.adbin::text like '%{VAR %' then d.adrelid else 0 end) "
    L"like 'nextval(%' from pg_catalog.pg_attrdef d where d.adrelid = a.attrelid and d.adnum = a.attnum), "
    L"false)) from (((pg_catalog.pg_class c inner join pg_catalog.pg_namespace n on n.oid = "
    L"c.relnamespace and $SCHEMA) inner join pg_catalog.pg_attribute a on (not "
    L"a.attisdropped) and a.attnum > 0 and a.attrelid = c.oid and c.relkind in ('r', 'v', 'm', 'f', 'p')) "
    L"inner join pg_catalog.pg_type t on t.oid = a.atttypid) order by n.nspname, c.relname, a.attnum";

// psqlODBC's SQLColumns lists the columns of every relation whose name matches, indexes,
// sequences and composite types too. Their columns are not kept; a request whose pattern matches
// one of their names is left to the driver.
const wchar_t* const kPgOtherRelationQuery =
    L"select c.relname from pg_catalog.pg_class c inner join pg_catalog.pg_namespace n on n.oid = "
    L"c.relnamespace and $SCHEMA where c.relkind not in ('r', 'v', 'm', 'f', 'p')";

// The primary keys as the database's constraints hold them, in the rows and order of psqlODBC's
// SQLPrimaryKeys. Unlike psqlODBC (13.02), a table without a primary-key constraint gets no key
// (psqlODBC falls back to any index named "<table>_pkey", whichever table it belongs to), and the
// INCLUDE columns of the key's index are not key columns (psqlODBC lists every index column).
const wchar_t* const kPgPrimaryKeyQuery =
    L"select pg_catalog.current_database(), n.nspname, tc.relname, ta.attname, k.n::int4, cn.conname from "
    L"pg_catalog.pg_namespace n inner join pg_catalog.pg_class tc on n.oid = tc.relnamespace inner join "
    L"pg_catalog.pg_constraint cn on cn.conrelid = tc.oid and cn.contype = 'p' cross join lateral "
    L"pg_catalog.unnest(cn.conkey) with ordinality k(attnum, n) inner join pg_catalog.pg_attribute ta on "
    L"ta.attrelid = tc.oid and ta.attnum = k.attnum where $SCHEMA and $TABLE order by n.nspname, tc.relname, "
    L"k.n";

// psqlODBC's SQLForeignKeys for the tables on the foreign-key side, but with each foreign key once:
// a key that refers to a partitioned table is copied by the server for each partition (constraints
// whose parent is a key of the same table), and psqlODBC (13.02) lists every copy. The same rows
// as its query gives otherwise, but planned from the schema's constraints outwards: its generate_series is
// estimated at a thousand rows a key, which plans hash joins over whole catalogs and, past the
// server's cost threshold, compiles the query (a JIT that costs more than the query).
const wchar_t* const kPgForeignKeyQuery =
    L"select pg_catalog.current_database(), n2.nspname, c2.relname, a2.attname, "
    L"pg_catalog.current_database(), ref.nspname, ref.relname, a1.attname, ref.i::int2, case "
    L"ref.confupdtype when 'c' then 0::int2 when 'n' then 2::int2 when 'd' then 4::int2 when 'r' then "
    L"1::int2 else 3::int2 end, case ref.confdeltype when 'c' then 0::int2 when 'n' then 2::int2 when 'd' "
    L"then 4::int2 when 'r' then 1::int2 else 3::int2 end, ref.conname, cn.conname from (select cn.oid, "
    L"cn.conrelid, cn.conkey, cn.confrelid, cn.confkey, k.i, cn.confupdtype, cn.confdeltype, cn.conname, "
    L"c.relname, n.nspname from pg_catalog.pg_namespace n inner join pg_catalog.pg_class c on n.oid = "
    L"c.relnamespace inner join pg_catalog.pg_constraint cn on cn.conrelid = c.oid and cn.contype = 'f' "
    L"cross join lateral pg_catalog.unnest(cn.conkey) with ordinality k(attnum, i) where $SCHEMA and $TABLE "
    L"and not exists (select from pg_catalog.pg_constraint p where p.oid = cn.conparentid and p.conrelid = "
    L"cn.conrelid)) ref inner join pg_catalog.pg_attribute a1 on a1.attrelid = ref.conrelid and a1.attnum = "
    L"ref.conkey[ref.i] inner join pg_catalog.pg_class c2 on c2.oid = ref.confrelid inner join "
    L"pg_catalog.pg_namespace n2 on n2.oid = c2.relnamespace inner join pg_catalog.pg_attribute a2 on "
    L"a2.attrelid = ref.confrelid and a2.attnum = ref.confkey[ref.i] left outer join "
    L"pg_catalog.pg_constraint cn on cn.conrelid = ref.confrelid and cn.contype = 'p' where $PKSCHEMA and "
    L"$PKTABLE order by ref.nspname, ref.relname, ref.oid, ref.i";

// Every relation of the schema with its kind and comment (psqlODBC leaves REMARKS empty).
const wchar_t* const kPgRelationFactsQuery =
    L"select c.relname, c.relkind::text, coalesce(d.description, '') from pg_catalog.pg_class c inner join "
    L"pg_catalog.pg_namespace n on n.oid = c.relnamespace left join pg_catalog.pg_description d on d.objoid "
    L"= "
    L"c.oid and d.classoid = 'pg_catalog.pg_class'::pg_catalog.regclass and d.objsubid = 0 where $SCHEMA";

// Every column of the schema's tables, views, materialized views, foreign and partitioned tables,
// with its comment and its type as NativeTypes reads it: the base type of a domain, a generic name
// for arrays, enums, ranges and composite types, "text" for varchar and char without a length,
// and the type modifier (of the domain, for a domain column).
const wchar_t* const kPgColumnFactsQuery =
    L"select c.relname, a.attname, coalesce(d.description, ''), case when b.typcategory = 'A' then 'array' "
    L"when b.typtype = 'e' then 'enum' when b.typtype in ('r', 'm') then 'range' when b.typtype = 'c' then "
    L"'composite' when b.typname = 'varchar' and m.typmod < 0 then 'text' else b.typname::text end, "
    L"m.typmod from pg_catalog.pg_class c inner join pg_catalog.pg_namespace n on n.oid = c.relnamespace "
    L"inner join pg_catalog.pg_attribute a on a.attrelid = c.oid and a.attnum > 0 and not a.attisdropped "
    L"inner join pg_catalog.pg_type t on t.oid = a.atttypid inner join pg_catalog.pg_type b on b.oid = case "
    L"when t.typtype = 'd' then t.typbasetype else t.oid end cross join lateral (select case when "
    L"t.typtype = 'd' then t.typtypmod else a.atttypmod end as typmod) m left join pg_catalog.pg_description "
    L"d on d.objoid = c.oid and d.classoid = 'pg_catalog.pg_class'::pg_catalog.regclass and d.objsubid = "
    L"a.attnum where $SCHEMA and c.relkind in ('r', 'v', 'm', 'f', 'p')";

// `query` with each `marker` replaced by its condition.
WyString With(const wchar_t* query, std::initializer_list<std::pair<const wchar_t*, WyString>> conditions) {
    WyString sql = query;
    for (const auto& condition : conditions) {
        const WyString marker = condition.first;
        const size_t at = sql.find(marker);
        if (at != WyString::npos) {
            sql.replace(at, marker.size(), condition.second);
        }
    }
    return sql;
}

// `column` equal to `name`; every name when `name` is empty.
WyString Equals(const wchar_t* column, const WyString& name) {
    return name.empty() ? WyString(L"true") : WyString(column) + L" = " + PgLiteral(name);
}

bool HasWildcard(const WyString& pattern) {
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == L'\\' && i + 1 < pattern.size() &&
            (pattern[i + 1] == L'%' || pattern[i + 1] == L'_' || pattern[i + 1] == L'\\')) {
            ++i;
        } else if (pattern[i] == L'%' || pattern[i] == L'_') {
            return true;
        }
    }
    return false;
}

// The name a search pattern without wildcards stands for.
WyString Unescaped(const WyString& pattern) {
    WyString name;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == L'\\' && i + 1 < pattern.size() &&
            (pattern[i + 1] == L'%' || pattern[i + 1] == L'_' || pattern[i + 1] == L'\\')) {
            ++i;
        }
        name += pattern[i];
    }
    return name;
}

} // namespace

// A PostgreSQL string literal that reads as `text` whatever standard_conforming_strings says.
WyString PgLiteral(const WyString& text) {
    WyString literal = L"E'";
    for (wchar_t c : text) {
        if (c == L'\\' || c == L'\'') {
            literal += L'\\';
        }
        literal += c;
    }
    return literal + L"'";
}

WyString PgPatternCondition(const wchar_t* column, const WyString& pattern) {
    if (pattern.empty()) {
        return L"true";
    }
    if (!HasWildcard(pattern)) {
        return Equals(column, Unescaped(pattern));
    }
    // LIKE takes "\" before any character as an escape: a backslash that stands for itself is doubled.
    WyString like;
    for (size_t i = 0; i < pattern.size(); ++i) {
        const wchar_t c = pattern[i];
        if (c == L'\\') {
            const bool escapes =
                i + 1 < pattern.size() &&
                (pattern[i + 1] == L'%' || pattern[i + 1] == L'_' || pattern[i + 1] == L'\\');
            if (escapes) {
                like += c;
                like += pattern[++i];
            } else {
                like += L"\\\\";
            }
            continue;
        }
        like += c;
    }
    return WyString(column) + L" like " + PgLiteral(like);
}

void ReadColumnsPostgres(SQLHDBC connection, const WyString& schemaPattern, const WyString& context,
                         WholeSchemaCache& cache, SchemaRows<CachedColumn>& rows,
                         const std::function<ColumnShape(const TableRef&, const WyString&)>& driverShape) {
    std::map<WyString, uint32_t> kinds;
    std::vector<std::pair<TableRef, WyString>> representatives;
    cache.relationsNotRead.clear();
    const WyString schema = PgPatternCondition(L"n.nspname", schemaPattern);
    RunQuery(connection, With(kPgOtherRelationQuery, {{L"$SCHEMA", schema}}), context,
             [&](Row& row) { cache.relationsNotRead.emplace(row.Text(1), '\0'); });
    RunPagedPgQuery(connection, With(kPgColumnQuery, {{L"$SCHEMA", schema}}), context, [&](Row& row) {
        TableRef table{WyString(), row.Text(1), row.Text(2)};
        CachedColumn column;
        column.name = row.Text(3);
        const auto kind = kinds.emplace(row.Text(4), static_cast<uint32_t>(kinds.size()));
        if (kind.second) {
            representatives.emplace_back(table, column.name);
        }
        column.shape = kind.first->second; // the kind until its shape is known
        rows.Add(WyString(), table.schema, table.table, std::move(column));
    });
    std::vector<uint32_t> shapeOfKind(kinds.size());
    for (const auto& kind : kinds) {
        auto known = cache.shapeOfKind.find(kind.first);
        if (known == cache.shapeOfKind.end()) {
            const auto& representative = representatives[kind.second];
            known = cache.shapeOfKind
                        .emplace(kind.first,
                                 cache.shapes.Of(driverShape(representative.first, representative.second)))
                        .first;
        }
        shapeOfKind[kind.second] = known->second;
    }
    rows.ForEachRow([&shapeOfKind](CachedColumn& column) { column.shape = shapeOfKind[column.shape]; });
}

void ReadPrimaryKeysPostgres(SQLHDBC connection, const WyString& schema, const WyString& table,
                             SchemaRows<MIPrimaryKey>& rows) {
    const WyString context = table.empty()
                                 ? L"reading the primary keys of every table of the schema " + Quoted(schema)
                                 : L"reading the primary key of " + NamePath({&schema, &table});
    RunPagedPgQuery(connection,
                    With(kPgPrimaryKeyQuery, {{L"$SCHEMA", Equals(L"n.nspname", schema)},
                                              {L"$TABLE", Equals(L"tc.relname", table)}}),
                    context, [&](Row& row) {
                        const MIPrimaryKey key = PrimaryKeyRow(row);
                        rows.Add(WyString(), key.schema_, key.table_, key);
                    });
}

void ReadForeignKeysPostgres(SQLHDBC connection, const TableRef& pk, const TableRef& fk,
                             SchemaRows<MIForeignKey>& rows) {
    const WyString context =
        L"reading the foreign keys" +
        (fk.schema.empty() && fk.table.empty() ? WyString() : L" of " + NamePath({&fk.schema, &fk.table})) +
        (pk.schema.empty() && pk.table.empty() ? WyString()
                                               : L" that refer to " + NamePath({&pk.schema, &pk.table}));
    RunPagedPgQuery(connection,
                    With(kPgForeignKeyQuery, {{L"$SCHEMA", Equals(L"n.nspname", fk.schema)},
                                              {L"$TABLE", Equals(L"c.relname", fk.table)},
                                              {L"$PKSCHEMA", Equals(L"n2.nspname", pk.schema)},
                                              {L"$PKTABLE", Equals(L"c2.relname", pk.table)}}),
                    context, [&](Row& row) {
                        const MIForeignKey key = ForeignKeyRow(row);
                        rows.Add(WyString(), key.fkSchema_, key.fkTable_, key);
                    });
}

void ReadFactsPostgres(SQLHDBC connection, const WyString& schema, SchemaFacts& facts) {
    const WyString context = L"reading the comments and types of the schema " + Quoted(schema);
    const WyString condition = Equals(L"n.nspname", schema);
    RunQuery(connection, With(kPgRelationFactsQuery, {{L"$SCHEMA", condition}}), context, [&](Row& row) {
        const WyString name = row.Text(1);
        const WyString kind = row.Text(2);
        facts.relations[name] = RelationFacts{kind.empty() ? L'\0' : kind[0], row.Text(3)};
    });
    RunPagedPgQuery(connection, With(kPgColumnFactsQuery, {{L"$SCHEMA", condition}}), context, [&](Row& row) {
        const WyString table = row.Text(1);
        const WyString column = row.Text(2);
        ColumnFacts& found = facts.columns[{table, column}];
        found.remarks = row.Text(3);
        found.type.name = row.Text(4);
        found.type.first = row.Signed(5);
        found.type.arguments = 1;
    });
}

bool PgListsColumnsOf(wchar_t relkind) {
    return relkind == L'r' || relkind == L'v' || relkind == L'm' || relkind == L'f' || relkind == L'p';
}

} // namespace odbc
