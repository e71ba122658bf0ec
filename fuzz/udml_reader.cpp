// Fuzzes the repository's UDML reader, content included: any bytes are read into a repository
// or refused with a message naming the input, never a crash or a hang.
#include "FuzzCheck.h"

#include "platform/repository/UdmlReader.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    ARpGateway gateway;
    gateway.DeclareDatabase(L"DB");
    try {
        UdmlContent content;
        UdmlReader::ReadText(gateway, text, "input.udml", &content);
    } catch (const ErrorMessage& error) {
        FUZZ_CHECK(std::string(error.what()).find("input.udml") != std::string::npos,
                   "a refusal names the input");
    }
    return 0;
}
