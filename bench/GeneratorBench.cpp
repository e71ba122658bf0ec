// Throughput of the generator alone: a whole-database request over an in-memory source holding a
// synthetic catalog shaped like an application schema, written to each of the three sinks. The
// source's own cost is kept out of the loop as far as it can be (its indexes are warmed first).
#include "SMUOdbcGenerator.h"
#include "import/memory/MemoryImport.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iostream>
#include <memory>
#include <streambuf>
#include <string>

namespace {

// The shape of a synthetic source: tables spread over ten schemas, each with `columns` columns,
// a primary key over its first `keyColumns` columns and `foreignKeys` foreign keys that each
// reference another table's primary key.
struct CatalogShape {
    int tables;
    int columns;
    int keyColumns;
    int foreignKeys;
};

struct ColumnType {
    const wchar_t* name;
    WyDataType type;
    const wchar_t* typeName;
    uint32 precision;
    uint32 length;
    uint16 scale;
    uint16 radix;
};

// Roughly what PostgreSQL's ODBC driver reports for everyday column types.
constexpr std::array<ColumnType, 17> kColumnTypes{{
    {L"name", WyVarCharData, L"varchar", 120, 120, 0, 0},
    {L"created_at", WyTimeStampData, L"timestamp", 26, 16, 6, 0},
    {L"amount", WyNumericData, L"numeric", 12, 14, 2, 10},
    {L"is_active", WyBitData, L"bool", 1, 1, 0, 0},
    {L"quantity", WyInt2Data, L"int2", 5, 2, 0, 10},
    {L"status", WyCharData, L"bpchar", 1, 1, 0, 0},
    {L"notes", WyLongVarCharData, L"text", 8190, 8190, 0, 0},
    {L"valid_from", WyDateData, L"date", 10, 6, 0, 0},
    {L"ratio", WyDoubleData, L"float8", 17, 8, 0, 2},
    {L"external_ref", WyCharData, L"uuid", 37, 37, 0, 0},
    {L"unit_price", WyDecimalData, L"decimal", 10, 12, 4, 10},
    {L"sequence_no", WyNumericData, L"int8", 19, 8, 0, 10},
    {L"payload", WyVarBinaryData, L"bytea", 255, 255, 0, 0},
    {L"start_time", WyTimeData, L"time", 8, 6, 0, 0},
    {L"score", WyFloatData, L"float4", 8, 4, 0, 2},
    {L"retention", WyIntervalData, L"interval", 49, 16, 6, 0},
    {L"email", WyVarCharData, L"varchar", 254, 254, 0, 0},
}};

constexpr std::array<const wchar_t*, 10> kSchemas{L"sales",     L"inventory", L"finance", L"hr",
                                                  L"crm",       L"logistics", L"billing", L"support",
                                                  L"marketing", L"analytics"};
constexpr std::array<const wchar_t*, 12> kNouns{L"customer", L"order",    L"invoice",  L"product",
                                                L"shipment", L"employee", L"account",  L"payment",
                                                L"ticket",   L"campaign", L"supplier", L"warehouse"};
constexpr std::array<const wchar_t*, 6> kQualifiers{L"history", L"detail",  L"line",
                                                    L"summary", L"archive", L"staging"};
constexpr std::array<const wchar_t*, 4> kKeyNames{L"id", L"line_no", L"revision", L"site_id"};

const WyString kCatalog = L"warehouse_db";

WyString TableName(int table) {
    WyString number = std::to_wstring(table);
    number.insert(0, number.size() < 5 ? 5 - number.size() : 0, L'0');
    return WyString(kNouns[table % kNouns.size()]) + L"_" + kQualifiers[(table / 7) % kQualifiers.size()] +
           L"_" + number;
}

WyString SchemaName(int table) {
    return kSchemas[table % kSchemas.size()];
}

WyString KeyColumnName(int position) {
    return position < static_cast<int>(kKeyNames.size()) ? WyString(kKeyNames[position])
                                                         : L"key_" + std::to_wstring(position + 1);
}

int ReferencedTable(const CatalogShape& shape, int table, int foreignKey) {
    if (shape.tables == 1)
        return 0;
    const int offset = 1 + (foreignKey * 37) % (shape.tables - 1);
    return (table + offset) % shape.tables;
}

MIColumn MakeColumn(const WyString& schema, const WyString& table, const WyString& name,
                    const ColumnType& type, bool nullable) {
    MIColumn column;
    column.catalog_ = kCatalog;
    column.schema_ = schema;
    column.table_ = table;
    column.columnName_ = name;
    column.dataType_ = type.type;
    column.typeName_ = type.typeName;
    column.precision_ = type.precision;
    column.length_ = type.length;
    column.scale_ = type.scale;
    column.radix_ = type.radix;
    column.nullable_ = nullable ? 1 : 0;
    return column;
}

std::shared_ptr<const SourceMetadata> BuildCatalog(const CatalogShape& shape) {
    auto source = std::make_shared<SourceMetadata>();
    MICatalog catalog;
    catalog.catalog_ = kCatalog;
    source->catalogs.push_back(catalog);
    for (const wchar_t* name : kSchemas) {
        MISchema schema;
        schema.catalog_ = kCatalog;
        schema.schema_ = name;
        source->schemas.push_back(schema);
    }

    const ColumnType keyType{L"", WyInt4Data, L"int4", 10, 4, 0, 10};
    // Foreign-key columns come right after the key columns; the rest cycle through the types.
    const int keyColumns = std::max(1, std::min(shape.keyColumns, shape.columns));
    source->tables.reserve(shape.tables);
    source->columns.reserve(static_cast<size_t>(shape.tables) * shape.columns);
    for (int t = 0; t < shape.tables; ++t) {
        const WyString schema = SchemaName(t);
        const WyString name = TableName(t);
        MITable table;
        table.catalog_ = kCatalog;
        table.schema_ = schema;
        table.table_ = name;
        table.tableType_ = L"TABLE";
        table.remarks_ = L"Rows of " + name + L", kept for the \"" + schema + L"\" {reporting} area";
        source->tables.push_back(table);

        int column = 0;
        for (int k = 0; k < keyColumns; ++k, ++column) {
            source->columns.push_back(MakeColumn(schema, name, KeyColumnName(k), keyType, false));
            MIPrimaryKey key;
            key.catalog_ = kCatalog;
            key.schema_ = schema;
            key.table_ = name;
            key.columnName_ = KeyColumnName(k);
            key.keySequence_ = static_cast<uint16>(k + 1);
            key.primaryKeyName_ = name + L"_pkey";
            source->primaryKeys.push_back(key);
        }
        for (int f = 0; f < shape.foreignKeys; ++f) {
            const int referenced = ReferencedTable(shape, t, f);
            const WyString pkTable = TableName(referenced);
            for (int k = 0; k < keyColumns; ++k) {
                WyString fkColumn = pkTable + L"_" + KeyColumnName(k);
                if (column < shape.columns) {
                    source->columns.push_back(MakeColumn(schema, name, fkColumn, keyType, true));
                    ++column;
                }
                MIForeignKey foreignKey;
                foreignKey.pkCatalog_ = kCatalog;
                foreignKey.pkSchema_ = SchemaName(referenced);
                foreignKey.pkTable_ = pkTable;
                foreignKey.pkColumnName_ = KeyColumnName(k);
                foreignKey.fkCatalog_ = kCatalog;
                foreignKey.fkSchema_ = schema;
                foreignKey.fkTable_ = name;
                foreignKey.fkColumnName_ = fkColumn;
                foreignKey.keySequence_ = static_cast<uint16>(k + 1);
                foreignKey.updateRule_ = 3;
                foreignKey.deleteRule_ = f % 2 == 0 ? 3 : 0;
                foreignKey.foreignKeyName_ = name + L"_fk" + std::to_wstring(f + 1);
                foreignKey.primaryKeyName_ = pkTable + L"_pkey";
                source->foreignKeys.push_back(foreignKey);
            }
        }
        for (int c = 0; column < shape.columns; ++c, ++column) {
            const ColumnType& type = kColumnTypes[(t + c) % kColumnTypes.size()];
            const size_t round = c / kColumnTypes.size();
            WyString columnName = type.name;
            if (round > 0)
                columnName += L"_" + std::to_wstring(round + 1);
            MIColumn record = MakeColumn(schema, name, columnName, type, c % 3 != 0);
            if (c % 4 == 1)
                record.remarks_ = L"Übersicht: " + columnName + L" as entered by the clerk";
            source->columns.push_back(std::move(record));
        }
    }
    return source;
}

CatalogShape ShapeOf(const benchmark::State& state) {
    return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1)),
            static_cast<int>(state.range(2)), static_cast<int>(state.range(3))};
}

size_t CountOf(const std::string& text, const std::string& piece) {
    size_t count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size()))
        ++count;
    return count;
}

// A generator over the synthetic source with its listings warmed up, so that the loop measures
// the walk and the statement writing rather than the source building its indexes.
struct Fixture {
    explicit Fixture(const CatalogShape& catalogShape)
        : shape(catalogShape), import(BuildCatalog(catalogShape)),
          generator(nullptr, &import, L"", L"BENCH", L"", L"", ServerInfo::kCLI_ODBC350) {
        WyString warmUp;
        generator.SetOuput(&warmUp);
        Generate();
    }

    bool Generate() {
        error.clear();
        return generator.GenerateUdml(kTIDADatabase, L"", L"", L"", L"", L"", L"", L"", error, -1, 0xffff,
                                      false);
    }

    // Checks that one run's text declares every table, key and foreign key, so that a generator
    // that silently stops early cannot post a fine-looking rate.
    bool Check(benchmark::State& state, const std::string& text) {
        const size_t tables = static_cast<size_t>(shape.tables);
        const size_t foreignKeys = tables * static_cast<size_t>(shape.foreignKeys);
        const size_t declaredTables = CountOf(text, "\nDECLARE TABLE \"");
        const size_t declaredKeys = CountOf(text, "\nDECLARE TABLE KEY ");
        const size_t declaredForeignKeys = CountOf(text, "\nDECLARE FOREIGN KEY ");
        if (declaredTables == tables && declaredKeys == tables && declaredForeignKeys == foreignKeys)
            return true;
        const std::string message =
            "output declares " + std::to_string(declaredTables) + " tables, " + std::to_string(declaredKeys) +
            " table keys and " + std::to_string(declaredForeignKeys) + " foreign keys; expected " +
            std::to_string(tables) + ", " + std::to_string(tables) + " and " + std::to_string(foreignKeys);
        state.SkipWithError(message.c_str());
        return false;
    }

    void Report(benchmark::State& state, size_t bytesPerRun) {
        const double runs = static_cast<double>(state.iterations());
        state.counters["columns"] = benchmark::Counter(
            runs * static_cast<double>(shape.tables) * shape.columns, benchmark::Counter::kIsRate);
        state.counters["tables"] = benchmark::Counter(runs * shape.tables, benchmark::Counter::kIsRate);
        state.SetBytesProcessed(static_cast<int64_t>(bytesPerRun) * state.iterations());
    }

    bool Failed(benchmark::State& state) {
        if (!Generate()) {
            state.SkipWithError(
                ("generation failed: " + BaseStringUtil::StringToStdString(error, 65001)).c_str());
            return true;
        }
        return false;
    }

    CatalogShape shape;
    MemoryImport import;
    CUdmlGenerator generator;
    WyString error;
};

// Discards what is written to it, counting the bytes, in place of the standard output's buffer.
class CountingNullBuffer : public std::streambuf {
public:
    size_t Count() const { return m_count; }

protected:
    std::streamsize xsputn(const char*, std::streamsize count) override {
        m_count += static_cast<size_t>(count);
        return count;
    }
    int_type overflow(int_type c) override {
        if (!traits_type::eq_int_type(c, traits_type::eof()))
            ++m_count;
        return traits_type::not_eof(c);
    }

private:
    size_t m_count = 0;
};

// Puts a buffer in place of std::cout's for the lifetime of the guard.
class CoutRedirect {
public:
    explicit CoutRedirect(std::streambuf* buffer) : m_previous(std::cout.rdbuf(buffer)) {}
    ~CoutRedirect() { std::cout.rdbuf(m_previous); }
    CoutRedirect(const CoutRedirect&) = delete;
    CoutRedirect& operator=(const CoutRedirect&) = delete;

private:
    std::streambuf* m_previous;
};

// `freshString`: the host hands in a new string for every request, so growing it (copies and page
// faults of a buffer of tens of megabytes) is measured too; otherwise it reuses one string whose
// capacity is already there, which leaves the generator's own cost.
void DatabaseToString(benchmark::State& state, bool freshString) {
    Fixture fixture(ShapeOf(state));
    WyString output;
    for (auto _ : state) {
        WyString fresh;
        WyString& sink = freshString ? fresh : output;
        sink.clear();
        fixture.generator.SetOuput(&sink);
        if (fixture.Failed(state))
            break;
        benchmark::DoNotOptimize(sink.data());
        if (freshString) {
            state.PauseTiming();
            output.swap(fresh);
            state.ResumeTiming();
        }
    }
    const std::string text = BaseStringUtil::StringToStdString(output, 65001);
    if (fixture.Check(state, text))
        fixture.Report(state, text.size());
}

void BM_DatabaseToString(benchmark::State& state) {
    DatabaseToString(state, false);
}
void BM_DatabaseToFreshString(benchmark::State& state) {
    DatabaseToString(state, true);
}

void BM_DatabaseToRecordTable(benchmark::State& state) {
    Fixture fixture(ShapeOf(state));
    std::string text;
    size_t records = 0;
    for (auto _ : state) {
        auto table = std::make_unique<VirtualTable>();
        fixture.generator.SetOuput(table.get());
        if (fixture.Failed(state))
            break;
        // Releasing the records is the host's cost, not the generator's.
        state.PauseTiming();
        records = table->RecordCount();
        text = table->Text();
        table.reset();
        state.ResumeTiming();
    }
    if (fixture.Check(state, text)) {
        fixture.Report(state, text.size());
        state.counters["records"] = benchmark::Counter(static_cast<double>(records));
    }
}

void BM_DatabaseToStdOut(benchmark::State& state) {
    Fixture fixture(ShapeOf(state));
    CountingNullBuffer sink;
    {
        CoutRedirect redirect(&sink);
        fixture.generator.SetOuputStdOut();
        for (auto _ : state)
            if (fixture.Failed(state))
                break;
    }
    // One more run into a string checks the text that the stdout runs wrote.
    WyString output;
    fixture.generator.SetOuput(&output);
    if (!fixture.Failed(state) && fixture.Check(state, BaseStringUtil::StringToStdString(output, 65001)))
        fixture.Report(state, state.iterations() > 0 ? sink.Count() / state.iterations() : 0);
}

// Arguments: tables, columns per table, primary-key columns, foreign keys per table.
void Shapes(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"tables", "columns", "keys", "fks"});
    bench->Args({100, 12, 1, 1});
    bench->Args({1000, 12, 1, 1});
    bench->Args({1000, 12, 2, 1});
    bench->Args({1000, 60, 1, 3});
    bench->Args({10000, 12, 1, 1});
}

void LargeShapes(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"tables", "columns", "keys", "fks"});
    bench->Args({1000, 12, 1, 1});
    bench->Args({10000, 12, 1, 1});
}

// One dimension at a time at two sizes ten times apart, to read the growth exponent of each:
// columns of one primary key, foreign keys of a table, tables of the catalog. They write to the
// counting standard output, which keeps no text, so that the page faults of a growing output
// string do not pass for the generator's growth.
void GrowthShapes(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"tables", "columns", "keys", "fks"});
    bench->Args({10, 4000, 4000, 0});
    bench->Args({10, 40000, 40000, 0});
    bench->Args({100, 12, 1, 100});
    bench->Args({100, 12, 1, 1000});
    bench->Args({2000, 12, 1, 1});
    bench->Args({20000, 12, 1, 1});
}

} // namespace

// At least a few runs per measurement even for the largest shapes: the first run into a reused
// string grows it (hundreds of megabytes of page faults), which a single run would report as the
// generator's speed.
constexpr double kMinSeconds = 2.0;

BENCHMARK(BM_DatabaseToString)->Apply(Shapes)->MinTime(kMinSeconds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DatabaseToStdOut)
    ->Name("BM_Growth")
    ->Apply(GrowthShapes)
    ->MinTime(kMinSeconds)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DatabaseToFreshString)->Apply(LargeShapes)->MinTime(kMinSeconds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DatabaseToRecordTable)->Apply(LargeShapes)->MinTime(kMinSeconds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DatabaseToStdOut)->Apply(LargeShapes)->MinTime(kMinSeconds)->Unit(benchmark::kMillisecond);
