// Fuzzes the text conversions against reference decoders written here from the Unicode rules:
// UTF-8 to wide replaces each maximal subpart of an ill-formed sequence by one U+FFFD; wide to
// UTF-8 and to UTF-16 replaces each code unit that is not a scalar value by U+FFFD; UTF-16 to
// wide replaces each unpaired surrogate. Valid text survives every round trip unchanged.
#include "FuzzCheck.h"

#include "import/odbc/Utf16.h"
#include "platform/BaseStringUtil.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <string>

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

bool IsScalar(wchar_t unit) {
    const auto c = static_cast<uint32_t>(unit);
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

WyString Scalars(const WyString& text) {
    WyString out = text;
    for (wchar_t& unit : out)
        if (!IsScalar(unit))
            unit = kReplacement;
    return out;
}

// UTF-8 decoding by Unicode's table of well-formed byte sequences; `wellFormed` tells whether
// any replacement was made.
WyString ReferenceFromUtf8(const std::string& bytes, bool& wellFormed) {
    WyString out;
    wellFormed = true;
    size_t i = 0;
    while (i < bytes.size()) {
        const auto lead = static_cast<uint8_t>(bytes[i]);
        if (lead < 0x80) {
            out += static_cast<wchar_t>(lead);
            ++i;
            continue;
        }
        int trail = 0;
        uint8_t low = 0x80, high = 0xBF;
        uint32_t code = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            trail = 1;
            code = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            trail = 2;
            code = lead & 0x0F;
            low = lead == 0xE0 ? 0xA0 : 0x80;
            high = lead == 0xED ? 0x9F : 0xBF;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            trail = 3;
            code = lead & 0x07;
            low = lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xF4 ? 0x8F : 0xBF;
        } else {
            out += kReplacement;
            wellFormed = false;
            ++i;
            continue;
        }
        size_t next = i + 1;
        bool complete = true;
        for (int k = 0; k < trail; ++k, ++next) {
            const uint8_t lo = k == 0 ? low : 0x80, hi = k == 0 ? high : 0xBF;
            if (next >= bytes.size() || static_cast<uint8_t>(bytes[next]) < lo ||
                static_cast<uint8_t>(bytes[next]) > hi) {
                complete = false;
                break;
            }
            code = (code << 6) | (static_cast<uint8_t>(bytes[next]) & 0x3F);
        }
        if (complete) {
            out += static_cast<wchar_t>(code);
        } else {
            out += kReplacement;
            wellFormed = false;
        }
        i = next; // the maximal subpart ends before the first byte that does not fit
    }
    return out;
}

WyString ReferenceFromUtf16(const std::u16string& units) {
    WyString out;
    for (size_t i = 0; i < units.size(); ++i) {
        const char16_t c = units[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
            units[i + 1] <= 0xDFFF) {
            out += static_cast<wchar_t>(0x10000 + ((c - 0xD800) << 10) + (units[i + 1] - 0xDC00));
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            out += kReplacement;
        } else {
            out += static_cast<wchar_t>(c);
        }
    }
    return out;
}

std::u16string PairedOnly(const std::u16string& units) {
    std::u16string out;
    for (size_t i = 0; i < units.size(); ++i) {
        const char16_t c = units[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
            units[i + 1] <= 0xDFFF) {
            out += c;
            out += units[++i];
        } else {
            out += (c >= 0xD800 && c <= 0xDFFF) ? static_cast<char16_t>(kReplacement) : c;
        }
    }
    return out;
}

// Code units from every class that matters: ASCII, two-, three- and four-byte scalars,
// surrogates, values past U+10FFFF and negative ones.
WyString WideUnits(FuzzedDataProvider& in) {
    WyString text;
    while (in.remaining_bytes() > 0 && text.size() < 256) {
        switch (in.ConsumeIntegralInRange<int>(0, 6)) {
        case 0:
            text += static_cast<wchar_t>(in.ConsumeIntegralInRange<int32_t>(0, 0x7F));
            break;
        case 1:
            text += static_cast<wchar_t>(in.ConsumeIntegralInRange<int32_t>(0x80, 0x7FF));
            break;
        case 2:
            text += static_cast<wchar_t>(in.ConsumeIntegralInRange<int32_t>(0x800, 0xFFFF));
            break;
        case 3:
            text += static_cast<wchar_t>(in.ConsumeIntegralInRange<int32_t>(0xD7F0, 0xE010));
            break;
        case 4:
            text += static_cast<wchar_t>(in.ConsumeIntegralInRange<int32_t>(0x10000, 0x10FFFF));
            break;
        case 5:
            text += static_cast<wchar_t>(in.ConsumeIntegralInRange<int32_t>(0x10FFF0, 0x110010));
            break;
        default:
            text += static_cast<wchar_t>(in.ConsumeIntegral<int32_t>());
            break;
        }
    }
    return text;
}

void CheckUtf8Input(const std::string& bytes) {
    bool wellFormed = false;
    const WyString expected = ReferenceFromUtf8(bytes, wellFormed);
    WyString wide = L"x";
    BaseStringUtil::AppendFromUtf8(bytes.data(), bytes.size(), wide);
    FUZZ_CHECK(wide.compare(0, 1, L"x") == 0, "appending keeps what was there");
    FUZZ_CHECK(wide.substr(1) == expected, "UTF-8 decodes with one U+FFFD per maximal subpart");
    const std::string back = BaseStringUtil::StringToStdString(expected, 65001);
    if (wellFormed)
        FUZZ_CHECK(back == bytes, "well-formed UTF-8 survives UTF-8 -> wide -> UTF-8");
    bool backWellFormed = false;
    FUZZ_CHECK(ReferenceFromUtf8(back, backWellFormed) == expected && backWellFormed,
               "decoded text survives wide -> UTF-8 -> wide");
}

void CheckWideInput(const WyString& text) {
    const WyString scalars = Scalars(text);
    std::string bytes = BaseStringUtil::StringToStdString(text, 65001);
    bool wellFormed = false;
    FUZZ_CHECK(ReferenceFromUtf8(bytes, wellFormed) == scalars && wellFormed,
               "wide -> UTF-8 keeps every scalar value and replaces every other unit");
    std::string appended = "x";
    BaseStringUtil::AppendUtf8(text, appended);
    FUZZ_CHECK(appended == "x" + bytes, "appending UTF-8 converts as StringToStdString does");
    FUZZ_CHECK(BaseStringUtil::StringFrom(bytes.c_str(), 65001) == scalars.substr(0, scalars.find(L'\0')),
               "wide -> UTF-8 -> wide is the identity on scalar values");

    const std::u16string utf16 = WideToUtf16(text);
    FUZZ_CHECK(ReferenceFromUtf16(utf16) == scalars, "wide -> UTF-16 keeps every scalar value");
    FUZZ_CHECK(Utf16ToWide(utf16) == scalars, "wide -> UTF-16 -> wide is the identity on scalar values");
}

void CheckUtf16Input(const std::u16string& units) {
    const WyString wide = Utf16ToWide(units);
    FUZZ_CHECK(wide == ReferenceFromUtf16(units), "UTF-16 decodes with one U+FFFD per unpaired surrogate");
    FUZZ_CHECK(WideToUtf16(wide) == PairedOnly(units),
               "UTF-16 -> wide -> UTF-16 keeps everything but strays");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 3) {
    case 0:
        CheckUtf8Input(bytes);
        break;
    case 1: {
        FuzzedDataProvider in(data + 1, size - 1);
        CheckWideInput(WideUnits(in));
        break;
    }
    default: {
        std::u16string units(bytes.size() / 2, u'\0');
        for (size_t i = 0; i < units.size(); ++i)
            units[i] = static_cast<char16_t>(static_cast<uint8_t>(bytes[2 * i]) |
                                             (static_cast<uint8_t>(bytes[2 * i + 1]) << 8));
        CheckUtf16Input(units);
        break;
    }
    }
    return 0;
}
