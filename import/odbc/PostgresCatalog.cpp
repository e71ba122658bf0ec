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
    L"c.relnamespace and n.nspname like $SCHEMA) inner join pg_catalog.pg_attribute a on (not "
    L"a.attisdropped) and a.attnum > 0 and a.attrelid = c.oid and c.relkind in ('r', 'v', 'm', 'f', 'p')) "
    L"inner join pg_catalog.pg_type t on t.oid = a.atttypid) order by n.nspname, c.relname, a.attnum";

// psqlODBC's SQLColumns lists the columns of every relation whose name matches, indexes,
// sequences and composite types too. Their columns are not kept; a request whose pattern matches
// one of their names is left to the driver.
const wchar_t* const kPgOtherRelationQuery =
    L"select c.relname from pg_catalog.pg_class c inner join pg_catalog.pg_namespace n on n.oid = "
    L"c.relnamespace and n.nspname like $SCHEMA where c.relkind not in ('r', 'v', 'm', 'f', 'p')";

// psqlODBC's SQLPrimaryKeys for every table of one schema: the rows of its first query, without the
// table. Its comma joins plan as a hash join over every attribute of the catalog; walking each key
// index's columns (int2vector subscripts start at 0) reads them through the attribute index.
const wchar_t* const kPgPrimaryKeyQuery =
    L"select pg_catalog.current_database(), n.nspname, tc.relname, ta.attname, ia.attnum, ic.relname from "
    L"pg_catalog.pg_namespace n inner join pg_catalog.pg_class tc on n.oid = tc.relnamespace inner join "
    L"pg_catalog.pg_index i on tc.oid = i.indrelid and i.indisprimary inner join pg_catalog.pg_class ic "
    L"on ic.oid = i.indexrelid cross join lateral pg_catalog.unnest(i.indkey::pg_catalog.int2[]) with "
    L"ordinality k(attnum, n) inner join pg_catalog.pg_attribute ia on ia.attrelid = i.indexrelid and "
    L"ia.attnum = k.n and not ia.attisdropped inner join pg_catalog.pg_attribute ta on ta.attrelid = "
    L"i.indrelid and ta.attnum = k.attnum and not ta.attisdropped where n.nspname = $SCHEMA order by "
    L"tc.relname, ia.attnum";

// For a table without a primary key psqlODBC looks for an index named "<table>_pkey": such
// tables are left to the driver.
const wchar_t* const kPgPkeyIndexQuery =
    L"select c.relname from pg_catalog.pg_class c, pg_catalog.pg_namespace n where n.oid = "
    L"c.relnamespace and n.nspname = $SCHEMA and right(c.relname, 5) = '_pkey'";

// psqlODBC's SQLForeignKeys for every table of one schema on the foreign-key side. The same rows as
// its query gives, but planned from the schema's constraints outwards: its generate_series is
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
    L"cross join lateral pg_catalog.unnest(cn.conkey) with ordinality k(attnum, i) where n.nspname = "
    L"$SCHEMA) ref inner join pg_catalog.pg_attribute a1 on a1.attrelid = ref.conrelid and a1.attnum = "
    L"ref.conkey[ref.i] inner join pg_catalog.pg_class c2 on c2.oid = ref.confrelid inner join "
    L"pg_catalog.pg_namespace n2 on n2.oid = c2.relnamespace inner join pg_catalog.pg_attribute a2 on "
    L"a2.attrelid = ref.confrelid and a2.attnum = ref.confkey[ref.i] left outer join "
    L"pg_catalog.pg_constraint cn on cn.conrelid = ref.confrelid and cn.contype = 'p' order by "
    L"ref.relname, ref.oid, ref.i";

WyString WithSchema(const wchar_t* query, const WyString& schemaLiteral) {
    WyString sql = query;
    const WyString marker = L"$SCHEMA";
    const size_t at = sql.find(marker);
    sql.replace(at, marker.size(), schemaLiteral);
    return sql;
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

void ReadColumnsPostgres(SQLHDBC connection, const WyString& schemaLike, const WyString& context,
                         WholeSchemaCache& cache, SchemaRows<CachedColumn>& rows,
                         const std::function<ColumnShape(const TableRef&, const WyString&)>& driverShape) {
    std::map<WyString, uint32_t> kinds;
    std::vector<std::pair<TableRef, WyString>> representatives;
    cache.relationsNotRead.clear();
    RunQuery(connection, WithSchema(kPgOtherRelationQuery, schemaLike), context,
             [&](Row& row) { cache.relationsNotRead.emplace(row.Text(1), '\0'); });
    RunPagedPgQuery(connection, WithSchema(kPgColumnQuery, schemaLike), context, [&](Row& row) {
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

void ReadPrimaryKeysPostgres(SQLHDBC connection, const WyString& schema, SchemaRows<MIPrimaryKey>& rows,
                             std::set<WyString>& pkeyIndexNames) {
    const WyString context = L"reading the primary keys of every table of the schema " + Quoted(schema);
    RunPagedPgQuery(connection, WithSchema(kPgPrimaryKeyQuery, PgLiteral(schema)), context, [&](Row& row) {
        const MIPrimaryKey key = PrimaryKeyRow(row);
        rows.Add(WyString(), key.schema_, key.table_, key);
    });
    pkeyIndexNames.clear();
    RunQuery(connection, WithSchema(kPgPkeyIndexQuery, PgLiteral(schema)), context,
             [&](Row& row) { pkeyIndexNames.insert(row.Text(1)); });
}

void ReadForeignKeysPostgres(SQLHDBC connection, const WyString& schema, SchemaRows<MIForeignKey>& rows) {
    const WyString context = L"reading the foreign keys of every table of the schema " + Quoted(schema);
    RunPagedPgQuery(connection, WithSchema(kPgForeignKeyQuery, PgLiteral(schema)), context, [&](Row& row) {
        const MIForeignKey key = ForeignKeyRow(row);
        rows.Add(WyString(), key.fkSchema_, key.fkTable_, key);
    });
}

} // namespace odbc
