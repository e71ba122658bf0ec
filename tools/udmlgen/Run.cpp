// One run: read what the repository holds, open the source, check the request's names, then
// stream the generator's text to the output, which is replaced only when everything succeeded.
#include "Run.h"

#include "Existence.h"
#include "Interrupt.h"
#include "Log.h"
#include "OnlyNew.h"
#include "Output.h"
#include "Source.h"

#include "SMUOdbcGenerator.h"
#include "import/snapshot/SnapshotWriter.h"
#include "platform/repository/UdmlReader.h"

#include <iostream>
#include <sstream>
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
    CUdmlGenerator generator(&repository, source.import.get(), Wide(options.connect), Wide(options.database),
                             Wide(options.user), L"", source.cliType);
    StreamSink sink(output, options.viewLinks, [&generator] { generator.Abort(); });
    // The phase lines of -v would break into the progress line.
    if (isatty(STDERR_FILENO) && options.verbosity == Verbosity::Normal)
        sink.EnableProgress();
    OnlyNewFilter onlyNew(sink, repository);
    generator.SetOuput(options.onlyNew ? &onlyNew.Sink() : static_cast<VirtualTable*>(&sink));
    generator.SetTableType(options.tableTypes);
    SetAbortTarget(&generator);

    WyString errorText;
    // A request clears the abort flag as it starts, so a signal that came before it is honoured here.
    bool succeeded = ReceivedSignal() == 0 &&
                     generator.GenerateUdml(options.requestType, Wide(options.catalog), Wide(options.schema),
                                            Wide(options.table), Wide(options.tableUri), Wide(options.column),
                                            Wide(options.foreignKey), Wide(options.baseTable), errorText,
                                            options.depth, options.generateMask, false);
    if (options.onlyNew) {
        onlyNew.Flush();
        generator.SetOuput(&sink);
        succeeded = succeeded && WriteNewColumns(generator, onlyNew, options, errorText);
    }
    log.Phase("wrote the request");
    if (succeeded && options.viewLinks && ReceivedSignal() == 0 && !sink.Stopped()) {
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
    } else if (!succeeded) {
        Log::Error("generation failed", Lines(errorText));
        status = kExitFailure;
    }
    if (!output.Finish(status == 0) && status == 0)
        status = kExitFailure;
    log.Summary(sink.Written());
    return status;
}

int CaptureSnapshot(const Options& options) {
    Log log(options.verbosity);
    RefuseToReplaceInputs(options.outputFile, Inputs(options));
    Source source = OpenSource(options);
    log.Phase("opened the source: " + source.description);
    OutputFile output(options.outputFile);
    output.Open();
    std::ostringstream json;
    try {
        WriteSnapshot(*source.import, source.cliType, json);
    } catch (const ErrorMessage& error) {
        Log::Error("capture failed", std::vector<WyString>(error.Messages().begin(), error.Messages().end()));
        output.Finish(false);
        return kExitFailure;
    }
    source.import->CloseConnection();
    log.Phase("read the source");
    const std::string text = json.str();
    output.Write(text.data(), text.size());
    const bool written = output.Finish(ReceivedSignal() == 0 && !output.Failed());
    if (ReceivedSignal() != 0)
        return 128 + ReceivedSignal();
    if (written)
        log.Note("wrote a snapshot of " + std::to_string(text.size()) + " bytes to " + output.Name());
    return written ? 0 : kExitFailure;
}

} // namespace udmlgen
