// One run: read what the repository holds, open the source, check the request's names, then
// stream the generator's text to the output, which is replaced only when everything succeeded.
#include "Run.h"

#include "Existence.h"
#include "Interrupt.h"
#include "Log.h"
#include "OnlyNew.h"
#include "Output.h"
#include "Source.h"
#include "SourceGuard.h"

#include "SMUOdbcGenerator.h"
#include "import/snapshot/SnapshotWriter.h"
#include "platform/repository/UdmlReader.h"

#include <iostream>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <unistd.h>

namespace udmlgen {
namespace {

constexpr int kExitFailure = 1;
constexpr int kTableBit = 0x0008;

WyString Wide(const std::string& text) {
    return BaseStringUtil::StringFrom(text.c_str(), SystemUtility::GetMultiByteCodePage());
}

std::string Narrow(const WyString& text) {
    return BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
}

std::vector<std::pair<std::string, std::string>> Inputs(const Options& options) {
    std::vector<std::pair<std::string, std::string>> inputs;
    if (!options.snapshotFile.empty())
        inputs.emplace_back("--snapshot", options.snapshotFile);
    for (const std::string& file : options.existingFiles)
        inputs.emplace_back("--existing", file);
    return inputs;
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

void DeclareRepositoryDatabase(ARpGateway& repository, const Options& options) {
    ADatabase& database = repository.DeclareDatabase(Wide(options.database));
    for (const auto& [module, views] : options.joinWithinModule) {
        SUPropertiesTable& category = database.PropertyCategories()[Wide(module)];
        WyString value;
        category.GetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM, value);
        category.SetProperty(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM,
                             value.empty() ? Wide(views) : value + L";" + Wide(views));
    }
}

// The withheld join's message: the link, and both column counts as the source holds them.
WyString InconsistentLinkText(MIMetaDataImport& source, const StreamSink& sink) {
    std::string counts;
    try {
        source.PrepareForViewLink();
        MIViewLink link;
        while (source.Get(link)) {
            if (Narrow(link.name_) == sink.RejectedLink() &&
                link.sourceColumns_.size() != link.destinationColumns_.size()) {
                counts = ": " + std::to_string(link.sourceColumns_.size()) + " source columns but " +
                         std::to_string(link.destinationColumns_.size()) + " destination columns";
                break;
            }
        }
    } catch (const ErrorMessage&) {
        // The counts only add detail; the failure stands without them.
    }
    return Wide("view link \"" + sink.RejectedLink() + "\" (join \"" + sink.RejectedJoin() + "\")" + counts +
                "; its join is not written, and nothing after it");
}

// Reads back what the request wrote, then writes the joins of the source's view links.
bool WriteViewLinks(CUdmlGenerator& generator, ARpGateway& repository, StreamSink& sink,
                    const Options& options, WyString& errorText) {
    try {
        UdmlReader::ReadText(repository, sink.KeptText(), "the generated output");
    } catch (const ErrorMessage& error) {
        errorText = error.Messages().empty() ? L"reading back the output failed" : error.Messages().front();
        if ((options.generateMask & kTableBit) == 0)
            errorText += L"\n--view-links reads back the table statements, which --generate leaves out: add "
                         L"table to --generate, or run the view links apart with the table statements";
        return false;
    }
    const RepositoryNames names = CollectRepositoryNames(repository, Wide(options.database));
    // The generator reports a link whose column lists differ as a logic error while it writes
    // that join; the sink then withholds the join.
    WyAssert::SetLogicErrorSink([&sink](const wchar_t*, int, const WyString&) { sink.RejectCurrentJoin(); });
    const bool written = generator.GenerateViewLinks(names.tablesInDatabase, names.joinsInDatabase,
                                                     names.joinsInOtherDatabases);
    WyAssert::SetLogicErrorSink(nullptr);
    if (!written)
        errorText = L"the view links could not be written";
    return written;
}

// The new columns of tables the repository holds, each by the generator's column request.
bool WriteNewColumns(CUdmlGenerator& generator, const OnlyNewFilter& onlyNew, const Options& options,
                     WyString& errorText) {
    for (const OnlyNewFilter::Column& column : onlyNew.NewColumns()) {
        if (ReceivedSignal() != 0)
            return false;
        if (!generator.GenerateUdml(kTIDAColumn, column.catalog, column.schema, column.table, L"",
                                    column.column, L"", L"", errorText, -1, options.generateMask, false))
            return false;
    }
    return true;
}

} // namespace

bool SendRequest(CUdmlGenerator& generator, const Options& options, WyString& errorText) {
    return ReceivedSignal() == 0 &&
           generator.GenerateUdml(options.requestType, Wide(options.catalog), Wide(options.schema),
                                  Wide(options.table), Wide(options.tableUri), Wide(options.column),
                                  Wide(options.foreignKey), Wide(options.baseTable), errorText, options.depth,
                                  options.generateMask, false);
}

int Generate(const Options& options) {
    Log log(options.verbosity);
    RefuseToReplaceInputs(options.outputFile, Inputs(options));

    ARpGateway repository;
    for (const std::string& file : options.existingFiles)
        UdmlReader::ReadFile(repository, file);
    if (!options.existingFiles.empty())
        log.Phase("read the --existing files");
    Source source = OpenSource(options);
    log.Phase("opened the source: " + source.description);
    if (!options.allowMissing) {
        CheckRequestedObjectsExist(*source.import, options);
        log.Phase("found the objects the request names");
    }
    DeclareRepositoryDatabase(repository, options);
    SUSystemConfig::GetSystemConfig().SetNumericAsDouble(options.numericAsDouble);

    OutputFile output(options.outputFile);
    output.Open();
    // The generator ends a listing quietly when the source fails; the wrapper keeps the failures so
    // that the run cannot end in success with less than the source holds.
    FailureRecordingImport watched(*source.import);
    CUdmlGenerator generator(&repository, &watched, Wide(options.connect), Wide(options.database),
                             Wide(options.user), L"", source.cliType);
    watched.OnConnectionLost([&generator] { generator.Abort(); });
    watched.SetStallSeconds(options.timeoutSeconds);
    StreamSink sink(output, options.viewLinks, [&generator] { generator.Abort(); });
    // The phase lines of -v would break into the progress line.
    if (isatty(STDERR_FILENO) && options.verbosity == Verbosity::Normal)
        sink.EnableProgress();
    OnlyNewFilter onlyNew(sink, repository);
    generator.SetOuput(options.onlyNew ? &onlyNew.Sink() : static_cast<VirtualTable*>(&sink));
    generator.SetTableType(options.tableTypes);
    SetAbortTarget(&generator);

    WyString errorText;
    bool succeeded = SendRequest(generator, options, errorText);
    if (options.onlyNew) {
        onlyNew.Flush();
        generator.SetOuput(&sink);
        succeeded = succeeded && WriteNewColumns(generator, onlyNew, options, errorText);
    }
    log.Phase("wrote the request");
    if (succeeded && options.viewLinks && ReceivedSignal() == 0 && !sink.Stopped() &&
        !watched.HasFailures()) {
        succeeded = WriteViewLinks(generator, repository, sink, options, errorText);
        log.Phase("wrote the view-link joins");
    }
    SetAbortTarget(nullptr);
    sink.ReportProgress(true);
    if (!sink.RejectedLink().empty() || !sink.RejectedJoin().empty()) {
        succeeded = false;
        errorText = InconsistentLinkText(*source.import, sink);
    }
    generator.SetImport(nullptr); // the source is ours, not the generator's
    source.import->CloseConnection();

    int status = 0;
    if (ReceivedSignal() != 0) {
        std::cerr << "udmlgen: interrupted; the output holds what was written until then\n";
        status = 128 + ReceivedSignal();
    } else if (watched.HasFailures()) {
        ReportSourceFailures(watched.Failures());
        status = kExitFailure;
    } else if (!succeeded) {
        Log::Error("generation failed", Lines(errorText));
        status = kExitFailure;
    }
    if (!output.Finish(status == 0) && status == 0)
        status = kExitFailure;
    log.Summary(sink.Written());
    return status;
}

namespace {

// Hands what a stream writes to the output file in blocks.
class OutputBuffer : public std::streambuf {
public:
    explicit OutputBuffer(OutputFile& output) : m_output(output) { setp(m_block, m_block + sizeof m_block); }
    ~OutputBuffer() override { sync(); }
    size_t Written() const { return m_written + static_cast<size_t>(pptr() - pbase()); }

protected:
    int_type overflow(int_type c) override {
        if (sync() != 0)
            return traits_type::eof();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    int sync() override {
        const size_t length = static_cast<size_t>(pptr() - pbase());
        m_written += length;
        setp(m_block, m_block + sizeof m_block);
        return length == 0 || m_output.Write(m_block, length) ? 0 : -1;
    }

private:
    OutputFile& m_output;
    char m_block[1 << 16];
    size_t m_written = 0;
};

} // namespace

int CaptureSnapshot(const Options& options) {
    Log log(options.verbosity);
    RefuseToReplaceInputs(options.outputFile, Inputs(options));
    Source source = OpenSource(options);
    log.Phase("opened the source: " + source.description);
    OutputFile output(options.outputFile);
    output.Open();
    // The capture goes to the output as it is read, so memory stays flat however large the source.
    OutputBuffer buffer(output);
    std::ostream json(&buffer);
    try {
        WriteSnapshot(*source.import, source.cliType, json);
        json.flush();
    } catch (const ErrorMessage& error) {
        json.flush();
        Log::Error("capture failed", std::vector<WyString>(error.Messages().begin(), error.Messages().end()));
        output.Finish(false);
        return kExitFailure;
    }
    source.import->CloseConnection();
    log.Phase("read the source");
    const bool written = output.Finish(ReceivedSignal() == 0 && !output.Failed());
    if (ReceivedSignal() != 0)
        return 128 + ReceivedSignal();
    if (written)
        log.Note("wrote a snapshot of " + std::to_string(buffer.Written()) + " bytes to " + output.Name());
    return written ? 0 : kExitFailure;
}

} // namespace udmlgen
