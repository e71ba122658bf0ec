// Fuzzes the brace escaping and the property clause of the repository writer: every escaped text
// must read back, with a reader written here from the text form alone, to exactly its input, and
// a property clause must read back to its map, entry for entry, in the map's order.
#include "FuzzCheck.h"
#include "FuzzText.h"

#include "platform/UDMLWyGenerator.h"

#include <utility>
#include <vector>

namespace {

const WyString kAlphabet = L"{}\\ =,()aZ\"'\n\t";

// Reads the brace text that starts at `pos` and moves `pos` past it. False when there is none: a
// text must open with "{", close with "}", hold no bare brace, and use "\" only before "\", "{"
// or "}".
bool ReadBraceText(const WyString& text, size_t& pos, WyString& out) {
    out.clear();
    if (pos >= text.size() || text[pos] != L'{')
        return false;
    ++pos;
    while (pos < text.size()) {
        const wchar_t c = text[pos++];
        if (c == L'}')
            return true;
        if (c == L'{')
            return false;
        if (c == L'\\') {
            if (pos >= text.size())
                return false;
            const wchar_t escaped = text[pos++];
            if (escaped != L'\\' && escaped != L'{' && escaped != L'}')
                return false;
            out += escaped;
        } else {
            out += c;
        }
    }
    return false;
}

bool Expect(const WyString& text, size_t& pos, const WyString& literal) {
    if (text.compare(pos, literal.size(), literal) != 0)
        return false;
    pos += literal.size();
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);

    const WyString plain = FuzzText(in, kAlphabet, 64);
    const WyString escaped = UDMLWyGenerator::EscapeCurlyBraceInWyString(plain);
    size_t pos = 0;
    WyString back;
    FUZZ_CHECK(ReadBraceText(escaped, pos, back), "an escaped text is one brace text");
    FUZZ_CHECK(pos == escaped.size(), "nothing follows the closing brace");
    FUZZ_CHECK(back == plain, "an escaped text reads back to its input");

    WyStringStringMap properties;
    const size_t entries = in.ConsumeIntegralInRange<size_t>(0, 5);
    for (size_t i = 0; i < entries; ++i) {
        WyString key = FuzzText(in, kAlphabet, 12);
        properties[key] = FuzzText(in, kAlphabet, 12);
    }
    const WyString prefix = FuzzText(in, kAlphabet, 8);
    WyString out = prefix;
    WyString& result = UDMLWyGenerator::GenerateTblOrColumnProperties(properties, out);
    FUZZ_CHECK(&result == &out, "the clause is appended to the caller's text and returned");
    FUZZ_CHECK(out.compare(0, prefix.size(), prefix) == 0, "the text already there stays");
    if (properties.empty()) {
        FUZZ_CHECK(out == prefix, "an empty map adds nothing");
        return 0;
    }
    pos = prefix.size();
    FUZZ_CHECK(Expect(out, pos, L" PROPERTIES ("), "the clause opens");
    std::vector<std::pair<WyString, WyString>> read;
    for (;;) {
        WyString key, value;
        FUZZ_CHECK(ReadBraceText(out, pos, key), "a key is a brace text");
        FUZZ_CHECK(Expect(out, pos, L" = "), "key and value are joined by \" = \"");
        FUZZ_CHECK(ReadBraceText(out, pos, value), "a value is a brace text");
        read.emplace_back(key, value);
        if (Expect(out, pos, L")"))
            break;
        FUZZ_CHECK(Expect(out, pos, L", "), "entries are separated by \", \"");
    }
    FUZZ_CHECK(pos == out.size(), "nothing follows the clause");
    using Entries = std::vector<std::pair<WyString, WyString>>;
    const bool sameEntries = read == Entries(properties.begin(), properties.end());
    FUZZ_CHECK(sameEntries, "the clause holds the map's entries in its order");
    return 0;
}
