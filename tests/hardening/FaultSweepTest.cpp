// Breaks a whole-database walk at every single call it makes to its source, one call per run, and
// checks that the generator reports or absorbs the failure as its writers promise, keeps its
// depth counter and sink, and serves the next request as if nothing had happened.
#include "import/snapshot/SnapshotImport.h"
#include "platform/repository/ARpGateway.h"
#include "support/FakeImport.h"
#include "support/FaultInjectingImport.h"
#include "support/RunCommand.h"
#include "support/TestGenerator.h"

#include <gtest/gtest.h>

#include <iostream>

namespace {

const WyString kDatabase = L"Warehouse";
constexpr int kDatabaseRequest = 3023;

std::shared_ptr<const SourceMetadata> Warehouse(bool webService) {
    const std::string path = std::string(UDML_SOURCE_DIR) + "/tests/hardening/data/warehouse.json";
    auto metadata = std::make_shared<SourceMetadata>(ParseSnapshot(ReadWholeFile(path), path));
    if (webService) {
        // Give the web-service lookups something to find, so that they run to a match.
        metadata->schemas.front().wsInputMsg_ = L"<in {schema}/>";
        metadata->tables.front().wsXSLT_ = L"<xsl/>";
        metadata->tables.back().wsxsd_ = L"<xsd/>";
    }
    return metadata;
}

struct Outcome {
    bool result = false;
    WyString output;
    WyString error;
};

// One database request with no depth limit; the error text starts with a marker so that a
// request that must leave it alone can be caught touching it.
Outcome RunDatabaseRequest(TestGenerator& generator, WyString& sink) {
    Outcome outcome;
    sink.clear();
    outcome.error = L"(untouched)";
    outcome.result = generator.GenerateUdml(kDatabaseRequest, L"", L"", L"", L"", L"", L"", L"",
                                            outcome.error, -1, 0xffff, false);
    outcome.output = sink;
    return outcome;
}

struct Walk {
    ARpGateway gateway;
    MemoryImport source;
    FaultInjectingImport faulty;
    WyString sink;
    std::unique_ptr<TestGenerator> generator;

    Walk(std::shared_ptr<const SourceMetadata> metadata, CLIType cliType)
        : source(std::move(metadata)), faulty(source) {
        gateway.DeclareDatabase(kDatabase);
        generator = TestGenerator::Over(&faulty, &sink, kDatabase, cliType, &gateway);
    }
};

bool StartsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The k-th comma-separated argument of a logged call "Name(a,b,c)"; names in the test data hold
// no commas.
std::string Argument(const std::string& call, size_t k) {
    size_t start = call.find('(') + 1;
    for (size_t i = 0; i < k; ++i)
        start = call.find(',', start) + 1;
    const size_t end = call.find_first_of(",)", start);
    return call.substr(start, end - start);
}

// Whether a failure of call `n` (0-based) of the log must reach the request entry. Listings that
// the walk reads to collect names (catalogs, schemas and tables under the patterns "%", columns,
// keys, foreign keys, features) end quietly on a failure. Only the web-service lookups, which
// ask for one schema or table by its own name while the walk writes it, let the failure pass up.
bool MustReachRequest(const std::vector<std::string>& log, size_t n, CLIType cliType) {
    if (cliType != ServerInfo::kCLI_WS)
        return false;
    std::string listing;
    std::string kind;
    if (StartsWith(log[n], "PrepareForSchema(") || log[n] == "Get(MISchema)")
        kind = "PrepareForSchema(";
    else if (StartsWith(log[n], "PrepareForTable(") || log[n] == "Get(MITable)")
        kind = "PrepareForTable(";
    else
        return false;
    for (size_t i = n + 1; i-- > 0;) {
        if (StartsWith(log[i], kind)) {
            listing = log[i];
            break;
        }
    }
    const size_t nameArgument = kind == "PrepareForSchema(" ? 1 : 2;
    return !listing.empty() && Argument(listing, nameArgument) != "%";
}

struct SweepCount {
    int injected = 0;
    int reported = 0;
};

SweepCount Sweep(CLIType cliType) {
    const auto metadata = Warehouse(cliType == ServerInfo::kCLI_WS);
    SweepCount count;

    // The undisturbed walk: its output is what every recovered request must write again.
    Walk reference(metadata, cliType);
    const Outcome expected = RunDatabaseRequest(*reference.generator, reference.sink);
    EXPECT_TRUE(expected.result);
    EXPECT_EQ(expected.error, L"(untouched)");
    EXPECT_NE(expected.output.find(L"DECLARE FOREIGN KEY"), WyString::npos) << "the test data lost its keys";
    const std::vector<std::string> log = reference.faulty.Calls();
    EXPECT_GT(log.size(), 100u);

    for (size_t n = 1; n <= log.size(); ++n) {
        SCOPED_TRACE("fault at call " + std::to_string(n) + ": " + log[n - 1]);
        Walk walk(metadata, cliType);
        const WyString message = L"injected fault " + std::to_wstring(n);
        walk.faulty.FailAt("", static_cast<int>(n), {message});

        const Outcome broken = RunDatabaseRequest(*walk.generator, walk.sink);
        ++count.injected;
        EXPECT_TRUE(walk.faulty.Fired());
        if (walk.faulty.Calls().size() < n || walk.faulty.Calls()[n - 1] != log[n - 1]) {
            ADD_FAILURE() << "the walk took another road before the fault";
            break;
        }
        if (MustReachRequest(log, n - 1, cliType)) {
            ++count.reported;
            EXPECT_FALSE(broken.result);
            EXPECT_EQ(broken.error, message + L"\n");
            // Nothing failed before this call, so what was written is the undisturbed text up to
            // where the request stopped.
            EXPECT_EQ(expected.output.compare(0, broken.output.size(), broken.output), 0);
            EXPECT_LT(broken.output.size(), expected.output.size());
        } else {
            EXPECT_TRUE(broken.result);
            EXPECT_EQ(broken.error, L"(untouched)");
        }
        EXPECT_EQ(walk.generator->m_nDepth, 0);
        EXPECT_EQ(walk.generator->m_nOutputType, CUdmlGenerator::oString);
        EXPECT_EQ(walk.generator->m_pstrOutput, &walk.sink);

        walk.faulty.Disarm();
        const Outcome again = RunDatabaseRequest(*walk.generator, walk.sink);
        EXPECT_TRUE(again.result);
        EXPECT_EQ(again.error, L"(untouched)");
        if (again.output != expected.output)
            ADD_FAILURE() << "the request after the fault differs from a fresh one:\n"
                          << DiffTexts(Utf8(expected.output), Utf8(again.output));
        if (::testing::Test::HasFailure())
            break; // one broken call is enough to read; the rest would repeat it
    }
    return count;
}

TEST(FaultSweep, WebServiceLookupsReportTheirFailuresAndListingsAbsorbTheirs) {
    const SweepCount count = Sweep(ServerInfo::kCLI_WS);
    EXPECT_GT(count.reported, 0);
    EXPECT_LT(count.reported, count.injected);
    std::cout << "web-service source: " << count.injected << " faults injected, " << count.reported
              << " reported\n";
}

} // namespace
