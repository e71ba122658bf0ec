// UTF-16 conversion for the ODBC source: unixODBC hands over 16-bit texts, the generator works in
// 32-bit code units, and ill-formed input on either side turns into U+FFFD rather than vanishing.
#include "import/odbc/Utf16.h"

#include <cstdint>

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(char32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

} // namespace

std::u16string WideToUtf16(const WyString& text) {
    std::u16string out;
    out.reserve(text.size());
    for (wchar_t unit : text) {
        // wchar_t is signed on this platform: a negative unit is as ill-formed as one past 0x10FFFF.
        auto c = static_cast<char32_t>(static_cast<uint32_t>(unit));
        if (c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c)) {
            out.push_back(static_cast<char16_t>(kReplacement));
        } else if (c >= 0x10000) {
            c -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(c));
        }
    }
    return out;
}

WyString Utf16ToWide(const char16_t* text, size_t length) {
    WyString out;
    out.reserve(length);
    for (size_t i = 0; i < length; ++i) {
        char32_t c = text[i];
        if (IsHighSurrogate(c) && i + 1 < length && IsLowSurrogate(text[i + 1])) {
            char32_t low = text[++i];
            out.push_back(static_cast<wchar_t>(0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00)));
        } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
            out.push_back(static_cast<wchar_t>(kReplacement));
        } else {
            out.push_back(static_cast<wchar_t>(c));
        }
    }
    return out;
}
