// Fuzzes the snapshot reader: any bytes either parse or fail with a message naming the file, and
// the file source (which reads the file in one pass and then record by record) agrees with the
// text parser on both: the same message, or a capture byte for byte the same as that of the
// in-memory source over the parsed records. A capture must read back to the same capture: the
// writer never produces text its own reader refuses or reads differently.
#include "FuzzCheck.h"

#include "import/snapshot/SnapshotImport.h"
#include "import/snapshot/SnapshotWriter.h"

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

namespace {

std::string Capture(MIMetaDataImport& source, int32_t callInterface) {
    std::ostringstream out;
    WriteSnapshot(source, callInterface, out);
    return out.str();
}

std::string Capture(const SourceMetadata& metadata) {
    MemoryImport source(std::make_shared<const SourceMetadata>(metadata));
    return Capture(source, metadata.callInterface);
}

std::string FuzzFile(const std::string& text) {
    static const std::string path = "/tmp/fuzz-snapshot-" + std::to_string(::getpid()) + ".json";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    FUZZ_CHECK(file != nullptr, "the input file can be written");
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
    return path;
}

// The message with the file's name (its first mention; the quoted input may hold the same
// text) replaced, to compare messages about two names.
std::string Unnamed(std::string message, const std::string& name) {
    const size_t at = message.find(name);
    if (at != std::string::npos)
        message.replace(at, name.size(), "FILE");
    return message;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string path = FuzzFile(text);
    SourceMetadata metadata;
    std::string parseFailure;
    try {
        metadata = ParseSnapshot(text, "input.json");
    } catch (const ErrorMessage& error) {
        parseFailure = error.what();
        FUZZ_CHECK(parseFailure.find("input.json") != std::string::npos, "a parse failure names the file");
    }
    std::unique_ptr<SnapshotImport> file;
    try {
        file = ReadSnapshotFile(path);
    } catch (const ErrorMessage& error) {
        FUZZ_CHECK(Unnamed(error.what(), path) == Unnamed(parseFailure, "input.json"),
                   "the file source fails as the text parser does");
        return 0;
    }
    FUZZ_CHECK(parseFailure.empty(), "the file source refuses what the text parser refuses");

    // A capture keeps only what a walk of the source reaches, so compare the first capture with
    // the capture of its own reading.
    std::string first;
    try {
        first = Capture(metadata);
        FUZZ_CHECK(Capture(*file, metadata.callInterface) == first, "the file source serves what was parsed");
    } catch (const ErrorMessage&) {
        FUZZ_CHECK(false, "serving a parsed snapshot never fails");
    }
    SourceMetadata reread;
    try {
        reread = ParseSnapshot(first, "capture.json");
    } catch (const ErrorMessage& error) {
        std::fprintf(stderr, "%s\n", error.what());
        FUZZ_CHECK(false, "a capture reads back");
    }
    FUZZ_CHECK(Capture(reread) == first, "a capture reads back to the same capture");
    return 0;
}
