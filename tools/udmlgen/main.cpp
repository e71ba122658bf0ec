// udmlgen: drives the generator over an ODBC source or a snapshot file and streams the UDML it
// writes to standard output or a file. Messages go to standard error, never to the output.
#include "Options.h"

#include "SMUOdbcGenerator.h"
#include "import/snapshot/SnapshotImport.h"
#include "import/snapshot/SnapshotWriter.h"
#include "platform/repository/UdmlReader.h"

#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

std::atomic<CUdmlGenerator*> g_generator{nullptr};
volatile std::sig_atomic_t g_signal = 0;

// Stops the walk at its next check; the main flow then flushes what was written and exits.
extern "C" void OnSignal(int signal) {
    g_signal = signal;
    CUdmlGenerator* generator = g_generator.load();
    // Before the walk starts nothing has been written, so there is nothing to keep.
    if (generator == nullptr)
        _exit(128 + signal);
    generator->Abort();
}

WyString Wide(const std::string& text) {
    return BaseStringUtil::StringFrom(text.c_str(), SystemUtility::GetMultiByteCodePage());
}

std::string Narrow(const WyString& text) {
    return BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
}

// One line: the context, then every message of the failure, most general first.
void PrintError(const std::string& context, const std::vector<WyString>& messages) {
    std::string line = "udmlgen: " + context;
    for (const WyString& message : messages) {
        std::string text = Narrow(message);
        while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
            text.pop_back();
        if (!text.empty())
            line += ": " + text;
    }
    for (char& c : line)
        if (c == '\n')
            c = ' ';
    std::cerr << line << "\n";
}

std::vector<WyString> Lines(const WyString& text) {
    WyStringVector lines;
    BaseStringUtil::Tokenize(text, L"\n", lines, false, false);
    return std::vector<WyString>(lines.begin(), lines.end());
}

// The output sink: each record goes straight to the file, so memory stays flat however large
// the source. It also counts statements for the progress line, and keeps the text when the
// request's statements must be read back into the repository.
class StreamSink : public VirtualTable {
public:
    StreamSink(std::FILE* file, bool keepText) : m_file(file), m_keepText(keepText) {}

    void putRecord(const char* bytes, size_t length) override {
        if (length == 0)
            return;
        if (std::fwrite(bytes, 1, length, m_file) != length)
            m_writeFailed = true;
        if (m_keepText)
            m_text.append(bytes, length);
        if (length == 15 && std::memcmp(bytes, "\nDECLARE TABLE ", 15) == 0)
            ++m_tables;
        else if (length == 16 && std::memcmp(bytes, "\nDECLARE SCHEMA ", 16) == 0)
            ++m_schemas;
        else
            return;
        ReportProgress(false);
    }

    void ReportProgress(bool last) {
        if (!m_progress)
            return;
        const auto now = std::chrono::steady_clock::now();
        if (!last && now - m_lastReport < std::chrono::milliseconds(200))
            return;
        m_lastReport = now;
        const double seconds = std::chrono::duration<double>(now - m_start).count();
        std::fprintf(stderr, "\r\033[K%zu schemas, %zu tables, %.0f tables/s", m_schemas, m_tables,
                     seconds > 0 ? static_cast<double>(m_tables) / seconds : 0.0);
        if (last)
            std::fputs("\n", stderr);
        std::fflush(stderr);
    }

    void EnableProgress() { m_progress = true; }
    const std::string& KeptText() const { return m_text; }
    bool WriteFailed() const { return m_writeFailed; }

private:
    std::FILE* m_file;
    bool m_keepText;
    bool m_writeFailed = false;
    bool m_progress = false;
    std::string m_text;
    size_t m_tables = 0;
    size_t m_schemas = 0;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_lastReport;
};

// An open import source and the call-interface type the generator is to be told.
struct Source {
    std::unique_ptr<MIMetaDataImport> import;
    CLIType cliType = ServerInfo::kCLI_ODBC350;
    std::string defaultDatabase;
};

// Opens the source itself rather than through Connect, so that a failure to connect reaches
// the user with the driver's own words instead of being discarded.
Source OpenSource(const udmlgen::Options& options) {
    Source source;
    if (!options.snapshotFile.empty()) {
        std::unique_ptr<MemoryImport> snapshot = ReadSnapshotFile(options.snapshotFile);
        source.cliType = static_cast<CLIType>(snapshot->Metadata().callInterface);
        source.import = std::move(snapshot);
        std::string stem = options.snapshotFile.substr(options.snapshotFile.find_last_of('/') + 1);
        source.defaultDatabase = stem.substr(0, stem.find('.'));
        return source;
    }
    source.import.reset(DbGatewayDllMgr::MakeMIMetaDataImport(ServerInfo::kCLI_ODBC350));
    if (!source.import)
        throw ErrorMessage(L"no ODBC import source is available");
    WyString connect = Wide(options.connect);
    WyString user = Wide(options.user);
    const char* password = std::getenv("UDMLGEN_PASSWORD");
    WyString wpassword = Wide(password ? password : "");
    source.import->OpenConnection(connect, user, wpassword, false);
    source.defaultDatabase = options.connect.find('=') == std::string::npos ? options.connect : "Database";
    return source;
}

std::FILE* OpenOutput(const std::string& path) {
    if (path.empty() || path == "-")
        return stdout;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        throw ErrorMessage(Wide("cannot write " + path + ": " + std::strerror(errno)));
    return file;
}

int CloseOutput(std::FILE* file, const std::string& path, bool writeFailed) {
    const bool flushed = std::fflush(file) == 0 && !writeFailed;
    const bool closed = file == stdout ? true : std::fclose(file) == 0;
    if (flushed && closed)
        return 0;
    std::cerr << "udmlgen: writing " << (file == stdout ? std::string("standard output") : path)
              << " failed: " << std::strerror(errno) << "\n";
    return kExitFailure;
}

int CaptureSnapshot(const udmlgen::Options& options) {
    Source source = OpenSource(options);
    source.import = udmlgen::ApplySelection(std::move(source.import), options.selection);
    std::FILE* file = OpenOutput(options.outputFile);
    std::ostringstream json;
    WriteSnapshot(*source.import, source.cliType, json);
    const std::string text = json.str();
    const bool failed = std::fwrite(text.data(), 1, text.size(), file) != text.size();
    source.import->CloseConnection();
    return CloseOutput(file, options.outputFile, failed);
}

// Every table and join name the repository holds, split by the database asked about.
struct RepositoryNames {
    WyStringSet tablesInDatabase;
    WyStringSet joinsInDatabase;
    WyStringSet joinsInOtherDatabases;
};

RepositoryNames CollectRepositoryNames(const ARpGateway& repository, const WyString& database) {
    RepositoryNames names;
    repository.ForEachObject([&](const ARpObject& object) {
        const QualifiedName& path = object.GetQualifiedName();
        if (path.empty())
            return;
        const bool inDatabase = path.front() == database;
        if (object.GetTypeId() == kTIDATable && inDatabase)
            names.tablesInDatabase.insert(path.back());
        else if (object.GetTypeId() == kTIDAComplexJoin)
            (inDatabase ? names.joinsInDatabase : names.joinsInOtherDatabases).insert(path.back());
    });
    return names;
}

int Generate(const udmlgen::Options& options) {
    ARpGateway repository;
    for (const std::string& file : options.existingFiles)
        UdmlReader::ReadFile(repository, file);

    Source source = OpenSource(options);
    source.import = udmlgen::ApplySelection(std::move(source.import), options.selection);
    const WyString database = Wide(options.database.empty() ? source.defaultDatabase : options.database);
    ADatabase& repositoryDatabase = repository.DeclareDatabase(database);
    for (const auto& [module, views] : options.joinWithinModule) {
        SUPropertiesTable& category = repositoryDatabase.PropertyCategories()[Wide(module)];
        WyString value;
        category.GetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, value);
        category.SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM,
                             value.empty() ? Wide(views) : value + L";" + Wide(views));
    }
    SUSystemConfig::GetSystemConfig().SetNumericAsDouble(options.numericAsDouble);

    std::FILE* file = OpenOutput(options.outputFile);
    StreamSink sink(file, options.viewLinks);
    if (isatty(STDERR_FILENO))
        sink.EnableProgress();

    CUdmlGenerator generator(&repository, source.import.get(), Wide(options.connect), database,
                             Wide(options.user), L"", source.cliType);
    generator.SetOuput(&sink);
    generator.SetTableType(options.tableTypes);
    g_generator.store(&generator);

    WyString errorText;
    // A request clears the abort flag as it starts, so a signal that came before it is honoured here.
    bool succeeded = g_signal == 0 &&
                     generator.GenerateUdml(options.requestType, Wide(options.catalog), Wide(options.schema),
                                            Wide(options.table), Wide(options.tableUri), Wide(options.column),
                                            Wide(options.foreignKey), Wide(options.baseTable), errorText,
                                            options.depth, options.generateMask, false);
    if (succeeded && options.viewLinks && g_signal == 0) {
        try {
            UdmlReader::ReadText(repository, sink.KeptText(), "the generated output");
            const RepositoryNames names = CollectRepositoryNames(repository, database);
            succeeded = generator.GenerateViewLinks(names.tablesInDatabase, names.joinsInDatabase,
                                                    names.joinsInOtherDatabases);
            if (!succeeded)
                errorText = L"the view links could not be written";
        } catch (const ErrorMessage& error) {
            succeeded = false;
            errorText =
                error.Messages().empty() ? L"reading back the output failed" : error.Messages().front();
        }
    }
    g_generator.store(nullptr);
    sink.ReportProgress(true);
    generator.SetImport(nullptr); // the source is ours, not the generator's
    source.import->CloseConnection();

    const int closeStatus = CloseOutput(file, options.outputFile, sink.WriteFailed());
    if (g_signal != 0) {
        std::cerr << "udmlgen: interrupted; the output holds what was written until then\n";
        return 128 + g_signal;
    }
    if (!succeeded) {
        PrintError("generation failed", Lines(errorText));
        return kExitFailure;
    }
    return closeStatus;
}

} // namespace

int main(int argc, char** argv) {
    // NOTE: the SQLite ODBC driver has no wide entry points, so unixODBC narrows our names with the
    // process locale; under the default "C" locale non-ASCII names were lost on their way to the
    // driver (observed with table names holding "ß"). Our own conversions ignore the locale.
    if (!std::setlocale(LC_CTYPE, "C.UTF-8"))
        std::setlocale(LC_CTYPE, "");
    std::optional<udmlgen::Options> options;
    try {
        options = udmlgen::ParseOptions(argc, argv);
    } catch (const udmlgen::UsageError& error) {
        std::cerr << "udmlgen: " << error.message << "\nRun 'udmlgen --help' for usage.\n";
        return kExitUsage;
    }
    if (!options)
        return 0;

    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    try {
        return options->captureSnapshot ? CaptureSnapshot(*options) : Generate(*options);
    } catch (const ErrorMessage& error) {
        PrintError("error", std::vector<WyString>(error.Messages().begin(), error.Messages().end()));
        return kExitFailure;
    } catch (const std::exception& error) {
        std::cerr << "udmlgen: " << error.what() << "\n";
        return kExitFailure;
    }
}
