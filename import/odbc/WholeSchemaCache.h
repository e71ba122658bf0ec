// The whole-schema cache of the ODBC source: when to read a schema's columns or keys at once, the
// rows kept in memory, and the answers to per-table requests drawn from them.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/CatalogRows.h"
#include "import/odbc/SchemaRows.h"

#include <cstdint>
#include <map>
#include <vector>

namespace odbc {

// One kind's whole-schema rows, with the bookkeeping that decides when to read them; a schema
// whose read failed is served by the per-table calls from then on. A schema is read on the request
// for a second table of it, so that a request for one table costs no read of the whole schema.
template <typename Row> struct BulkCache {
    SchemaRows<Row> rows;
    TableRef pending; // catalog and schema of the last request not served from memory
    bool hasPending = false;
    TableRef failed;
    bool hasFailed = false;

    void Clear() {
        rows = SchemaRows<Row>();
        hasPending = false;
        hasFailed = false;
    }

    // True when the rows of (catalog, schema) are in memory, reading them with `load` when due.
    // `now`: read at once, even for the first table asked for (one the driver cannot be asked about).
    template <typename Load>
    bool Use(const WyString& catalog, const WyString& schema, const WyString& table, size_t& reads, Load load,
             bool now = false) {
        if (rows.Holds(catalog, schema)) {
            return true;
        }
        if (rows.IsLoaded()) {
            rows = SchemaRows<Row>(); // another schema: its rows are no longer wanted
        }
        if (hasFailed && failed.catalog == catalog && failed.schema == schema) {
            return false;
        }
        if (!now && (!hasPending || pending.catalog != catalog || pending.schema != schema ||
                     pending.table == table)) {
            pending = TableRef{catalog, schema, table};
            hasPending = true;
            return false;
        }
        try {
            rows.Reset(catalog, schema);
            load(rows);
            rows.Loaded();
            ++reads;
            return true;
        } catch (const ErrorMessage&) {
            // The per-table calls still answer, and report whatever is really wrong.
            rows = SchemaRows<Row>();
            failed = TableRef{catalog, schema, WyString()};
            hasFailed = true;
            return false;
        }
    }
};

// Records answered from memory, handed out by Get in turn.
template <typename Record> struct Served {
    std::vector<Record> records;
    size_t next = 0;
    bool active = false;

    void Stop() {
        records.clear();
        next = 0;
        active = false;
    }
    void Start() {
        Stop();
        active = true;
    }
    bool Get(Record& record) {
        if (next >= records.size()) {
            return false;
        }
        record = std::move(records[next++]);
        return true;
    }
};

// The distinct column shapes met on one connection, each kept once.
class ColumnShapes {
public:
    uint32_t Of(const ColumnShape& shape) {
        const auto found = m_index.emplace(shape, static_cast<uint32_t>(m_shapes.size()));
        if (found.second) {
            m_shapes.push_back(shape);
        }
        return found.first->second;
    }
    const ColumnShape& operator[](uint32_t index) const { return m_shapes[index]; }
    void Clear() {
        m_shapes.clear();
        m_index.clear();
    }

private:
    std::vector<ColumnShape> m_shapes;
    std::map<ColumnShape, uint32_t> m_index;
};

// Everything the whole-schema reads keep for one connection.
struct WholeSchemaCache {
    size_t reads = 0;
    ColumnShapes shapes;
    BulkCache<CachedColumn> columns;
    // The driver's shape of each kind of PostgreSQL column met so far (kinds are what the column
    // query reads), so that the driver is asked about each kind once per connection.
    std::map<WyString, uint32_t> shapeOfKind;
    std::map<WyString, char> relationsNotRead; // of the schema in `columns`
    BulkCache<MIPrimaryKey> primaryKeys;
    BulkCache<MIForeignKey> foreignKeys;

    void Clear();

    // The columns of the tables matching the pattern `request.table` of the request's schema, when
    // that schema's rows are in memory or now read by `load(rows)`. False: the driver is to be asked.
    // `now`: read the schema even for the first table asked for.
    template <typename Load>
    bool Columns(const TableRef& request, Load load, std::vector<MIColumn>& out, bool now = false) {
        if (!columns.Use(request.catalog, request.schema, request.table, reads, load, now) ||
            !NamesMatching(relationsNotRead, request.table).empty()) {
            return false;
        }
        columns.rows.ForTables(
            request.table, false,
            [&](const WyString&, const WyString& schema, const WyString& table, const CachedColumn& cached) {
                out.push_back(MakeColumn(TableRef{WyString(), schema, table}, cached, shapes[cached.shape]));
            });
        return true;
    }

    // The primary-key rows of the table `request.table`, as Columns.
    template <typename Load>
    bool PrimaryKey(const TableRef& request, Load load, std::vector<MIPrimaryKey>& out) {
        if (!primaryKeys.Use(request.catalog, request.schema, request.table, reads, load)) {
            return false;
        }
        primaryKeys.rows.ForTables(request.table, true,
                                   [&](const WyString&, const WyString&, const WyString&,
                                       const MIPrimaryKey& key) { out.push_back(key); });
        return true;
    }

    // The foreign-key rows of the table `fk.table` on the foreign-key side, as Columns.
    template <typename Load> bool ForeignKeys(const TableRef& fk, Load load, std::vector<MIForeignKey>& out) {
        if (!foreignKeys.Use(fk.catalog, fk.schema, fk.table, reads, load)) {
            return false;
        }
        foreignKeys.rows.ForTables(fk.table, true,
                                   [&](const WyString&, const WyString&, const WyString&,
                                       const MIForeignKey& key) { out.push_back(key); });
        return true;
    }
};

} // namespace odbc
