// The snapshot source alone: open a capture (the one pass that checks it and builds the index)
// and walk it as the generator does, schema by schema, each table's columns, primary key and
// foreign keys, reading every record back from the file. Reports the time and the process's peak
// resident memory; run each case in a process of its own (bench/snapshot-bench.sh does), since the
// peak is the process's. The captures come from bench/snapshot-bench.sh, in UDML_SNAPSHOT_BENCH_DIR.
#include "import/snapshot/SnapshotImport.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

double PeakMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// The arguments: tables, schemas.
void BM_SnapshotOpenAndWalk(benchmark::State& state) {
    const char* dir = std::getenv("UDML_SNAPSHOT_BENCH_DIR");
    const std::string path = std::string(dir ? dir : ".") + "/cap-" + std::to_string(state.range(0)) + "-" +
                             std::to_string(state.range(1)) + ".json";
    if (!std::ifstream(path)) {
        state.SkipWithError(("no " + path + "; run bench/snapshot-bench.sh first").c_str());
        return;
    }
    int64_t records = 0;
    for (auto _ : state) {
        SnapshotImport source(path);
        WyString all, percent = L"%";
        std::vector<MICatalog> catalogs;
        source.PrepareForCatalog(all);
        for (MICatalog catalog; source.Get(catalog);)
            catalogs.push_back(catalog);
        for (MICatalog& catalog : catalogs) {
            std::vector<WyString> schemas;
            source.PrepareForSchema(catalog.catalog_, all);
            for (MISchema schema; source.Get(schema);)
                schemas.push_back(schema.schema_);
            for (WyString& schema : schemas) {
                source.PrepareForTable(catalog.catalog_, schema, percent, 0);
                MITable table;
                MIColumn column;
                MIPrimaryKey key;
                MIForeignKey foreignKey;
                while (source.Get(table)) {
                    ++records;
                    source.PrepareForColumn(table.catalog_, table.schema_, table.table_, all);
                    while (source.Get(column))
                        ++records;
                    source.PrepareForPrimaryKey(table.catalog_, table.schema_, table.table_);
                    while (source.Get(key))
                        ++records;
                    source.PrepareForForeignKey(all, all, all, table.catalog_, table.schema_, table.table_);
                    while (source.Get(foreignKey))
                        ++records;
                }
            }
        }
    }
    state.counters["records"] = benchmark::Counter(static_cast<double>(records), benchmark::Counter::kIsRate);
    state.counters["peak_MiB"] = PeakMiB();
}

BENCHMARK(BM_SnapshotOpenAndWalk)
    ->Args({10000, 1})
    ->Args({10000, 100})
    ->Args({100000, 1})
    ->Args({100000, 100})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
