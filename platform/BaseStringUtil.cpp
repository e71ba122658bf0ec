// UTF-8 <-> UTF-32 conversion, Unicode simple case rules and the small text helpers every layer uses.
// These run millions of times per generation, so they convert by hand with an ASCII fast path and
// append in place instead of building temporaries.
#include "platform/BaseStringUtil.h"

#include <clocale>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <locale.h>

namespace {

constexpr char32_t kReplacement = 0xFFFD;
// Units widened or narrowed per step of an ASCII run.
constexpr size_t kAsciiChunk = 128;

void AppendEncoded(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// The case tables of C.UTF-8, opened once and never installed as the process locale, so that a
// host's own locale settings neither change our results nor get changed by us.
locale_t CaseLocale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return locale;
}

inline bool IsScalarBeyondAscii(wchar_t c) {
    const auto u = static_cast<uint32_t>(c);
    return u >= 0x80 && u <= 0x10FFFF;
}

inline uint32_t LowerUnit(wchar_t c) {
    return static_cast<uint32_t>(BaseStringUtil::ToLower(c));
}

} // namespace

void BaseStringUtil::AppendUtf8(const WyString& text, std::string& out) {
    const wchar_t* p = text.data();
    const wchar_t* const end = p + text.size();
    while (p < end) {
        const auto u = static_cast<uint32_t>(*p);
        if (u < 0x80) {
            // Runs of ASCII, nearly all of every statement, are narrowed through a small buffer and
            // appended in one step: far cheaper than a push_back per unit or a resize per run.
            char buffer[kAsciiChunk];
            size_t n = 0;
            while (p < end && n < kAsciiChunk && static_cast<uint32_t>(*p) < 0x80)
                buffer[n++] = static_cast<char>(*p++);
            out.append(buffer, n);
            continue;
        }
        ++p;
        if (u > 0x10FFFF || (u >= 0xD800 && u <= 0xDFFF)) {
            AppendEncoded(kReplacement, out);
        } else {
            AppendEncoded(u, out);
        }
    }
}

std::string BaseStringUtil::StringToStdString(const WyString& text, unsigned int /*codePage*/) {
    std::string out;
    AppendUtf8(text, out);
    return out;
}

void BaseStringUtil::AppendFromUtf8(const char* text, size_t length, WyString& out) {
    if (text == nullptr || length == 0)
        return;
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = p + length;
    while (p < end) {
        const unsigned char lead = *p;
        if (lead < 0x80) {
            wchar_t buffer[kAsciiChunk];
            size_t n = 0;
            while (p < end && n < kAsciiChunk && *p < 0x80)
                buffer[n++] = static_cast<wchar_t>(*p++);
            out.append(buffer, n);
            continue;
        }
        // Bytes needed after the lead, and the range allowed for the first of them (the later
        // ones are always 80..BF); this rejects overlongs, surrogates and values past U+10FFFF.
        int need;
        unsigned char lo = 0x80, hi = 0xBF;
        char32_t cp;
        if (lead >= 0xC2 && lead <= 0xDF) {
            need = 1;
            cp = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            need = 2;
            cp = lead & 0x0F;
            if (lead == 0xE0)
                lo = 0xA0;
            else if (lead == 0xED)
                hi = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            need = 3;
            cp = lead & 0x07;
            if (lead == 0xF0)
                lo = 0x90;
            else if (lead == 0xF4)
                hi = 0x8F;
        } else {
            out.push_back(static_cast<wchar_t>(kReplacement));
            ++p;
            continue;
        }
        ++p;
        bool complete = true;
        for (int i = 0; i < need; ++i) {
            if (p == end || *p < lo || *p > hi) {
                complete = false;
                break;
            }
            cp = (cp << 6) | (*p & 0x3F);
            ++p;
            lo = 0x80;
            hi = 0xBF;
        }
        // An incomplete sequence is its maximal subpart: one U+FFFD for the bytes taken so far,
        // and the offending byte is looked at again as the start of what follows.
        out.push_back(static_cast<wchar_t>(complete ? cp : kReplacement));
    }
}

WyString BaseStringUtil::StringFrom(const char* text, unsigned int /*codePage*/) {
    WyString out;
    if (text != nullptr)
        AppendFromUtf8(text, std::strlen(text), out);
    return out;
}

WyString BaseStringUtil::StringFrom(unsigned int value) {
    wchar_t digits[16];
    wchar_t* p = digits + 16;
    do {
        *--p = static_cast<wchar_t>(L'0' + value % 10);
        value /= 10;
    } while (value != 0);
    return WyString(p, digits + 16);
}

WyString BaseStringUtil::StringFrom(int value) {
    if (value >= 0)
        return StringFrom(static_cast<unsigned int>(value));
    // Negating in unsigned arithmetic keeps INT_MIN representable.
    WyString text = StringFrom(0u - static_cast<unsigned int>(value));
    text.insert(text.begin(), L'-');
    return text;
}

WyString BaseStringUtil::StringFrom(const wchar_t* text) {
    return text ? WyString(text) : WyString();
}

wchar_t BaseStringUtil::ToLower(wchar_t c) {
    if (c >= L'A' && c <= L'Z')
        return static_cast<wchar_t>(c + (L'a' - L'A'));
    if (!IsScalarBeyondAscii(c))
        return c;
    const locale_t locale = CaseLocale();
    return locale ? static_cast<wchar_t>(towlower_l(static_cast<wint_t>(c), locale)) : c;
}

wchar_t BaseStringUtil::ToUpper(wchar_t c) {
    if (c >= L'a' && c <= L'z')
        return static_cast<wchar_t>(c - (L'a' - L'A'));
    if (!IsScalarBeyondAscii(c))
        return c;
    const locale_t locale = CaseLocale();
    return locale ? static_cast<wchar_t>(towupper_l(static_cast<wint_t>(c), locale)) : c;
}

WyString BaseStringUtil::ToUpperCase(const WyString& text) {
    WyString out(text);
    for (wchar_t& c : out)
        c = ToUpper(c);
    return out;
}

WyString BaseStringUtil::ToLowerCase(const WyString& text) {
    WyString out(text);
    for (wchar_t& c : out)
        c = ToLower(c);
    return out;
}

int BaseStringUtil::CaseInsensitiveCompare(const WyString& a, const WyString& b) {
    const size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i) {
        if (a[i] == b[i])
            continue;
        const uint32_t la = LowerUnit(a[i]);
        const uint32_t lb = LowerUnit(b[i]);
        if (la != lb)
            return la < lb ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool BaseStringUtil::IsCaseInsensitiveMatch(const WyString& a, const WyString& b) {
    return a.size() == b.size() && CaseInsensitiveCompare(a, b) == 0;
}

bool BaseStringUtil::IsCaseInsensitiveLessThan(const WyString& a, const WyString& b) {
    return CaseInsensitiveCompare(a, b) < 0;
}

bool BaseStringUtil::CaseInsensitiveFindPatternAtStart(const WyString& text, const WyString& prefix) {
    if (prefix.size() > text.size())
        return false;
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (text[i] != prefix[i] && LowerUnit(text[i]) != LowerUnit(prefix[i]))
            return false;
    }
    return true;
}

void BaseStringUtil::Tokenize(const WyString& text, const WyString& delimiters, WyStringVector& out,
                              bool trimTokens, bool skipEmpty) {
    if (text.empty())
        return;
    auto emit = [&](size_t begin, size_t end) {
        if (trimTokens) {
            while (begin < end && iswspace(static_cast<wint_t>(text[begin])))
                ++begin;
            while (end > begin && iswspace(static_cast<wint_t>(text[end - 1])))
                --end;
        }
        if (skipEmpty && begin == end)
            return;
        out.emplace_back(text, begin, end - begin);
    };
    size_t start = 0;
    for (;;) {
        const size_t cut = text.find_first_of(delimiters, start);
        if (cut == WyString::npos) {
            emit(start, text.size());
            return;
        }
        emit(start, cut);
        start = cut + 1;
    }
}

WyString BaseStringUtil::ReplacePatternInString(const WyString& text, const WyString& pattern,
                                                const WyString& replacement) {
    if (pattern.empty())
        return text;
    size_t hit = text.find(pattern);
    if (hit == WyString::npos)
        return text;
    WyString out;
    out.reserve(text.size() + (replacement.size() > pattern.size() ? replacement.size() : 0) * 2);
    size_t from = 0;
    do {
        out.append(text, from, hit - from);
        out.append(replacement);
        from = hit + pattern.size();
        hit = text.find(pattern, from);
    } while (hit != WyString::npos);
    out.append(text, from, WyString::npos);
    return out;
}
