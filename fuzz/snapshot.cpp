// Fuzzes the snapshot reader: any bytes either parse or fail with a message naming the file. A
// parsed snapshot, served and captured again, must read back to the same capture: the writer
// never produces text its own reader refuses or reads differently.
#include "FuzzCheck.h"

#include "import/snapshot/SnapshotImport.h"
#include "import/snapshot/SnapshotWriter.h"

#include <memory>
#include <sstream>
#include <string>

namespace {

std::string Capture(const SourceMetadata& metadata) {
    MemoryImport source(std::make_shared<const SourceMetadata>(metadata));
    std::ostringstream out;
    WriteSnapshot(source, metadata.callInterface, out);
    return out.str();
}

bool NamesFile(const ErrorMessage& error, const std::string& file) {
    return std::string(error.what()).find(file) != std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    SourceMetadata metadata;
    try {
        metadata = ParseSnapshot(text, "input.json");
    } catch (const ErrorMessage& error) {
        FUZZ_CHECK(NamesFile(error, "input.json"), "a parse failure names the file");
        return 0;
    }
    // A capture keeps only what a walk of the source reaches, so compare the first capture with
    // the capture of its own reading.
    std::string first;
    try {
        first = Capture(metadata);
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
