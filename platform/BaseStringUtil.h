// String utilities: UTF-8 conversion, case rules, splitting, pattern replacement and number text.
// Case rules use the Unicode simple case mappings code unit by code unit; the process locale is
// never touched.
#pragma once

#include "platform/SystemUtility.h"
#include "platform/WyString.h"

#include <string>

class BaseStringUtil {
public:
    /// Wide to 8-bit text in `codePage` (always UTF-8 here). A code unit that is not a Unicode
    /// scalar value (a surrogate, or above 0x10FFFF) becomes U+FFFD.
    static std::string StringToStdString(const WyString& text, unsigned int codePage);
    /// Appends the UTF-8 form of `text` to `out`; the conversion of StringToStdString.
    static void AppendUtf8(const WyString& text, std::string& out);
    /// 8-bit text in `codePage` to wide. Every ill-formed UTF-8 subsequence becomes one U+FFFD
    /// (maximal subpart practice); nothing is dropped.
    static WyString StringFrom(const char* text, unsigned int codePage);
    /// Appends the wide form of `length` bytes of UTF-8 at `text` to `out`.
    static void AppendFromUtf8(const char* text, size_t length, WyString& out);

    /// Decimal text: no sign for non-negative values, no leading zeros, no grouping.
    static WyString StringFrom(unsigned int value);
    static WyString StringFrom(int value);
    static WyString StringFrom(const wchar_t* text);

    /// Exact, case-sensitive equality.
    static bool IsMatch(const WyString& a, const WyString& b) { return a == b; }
    static bool IsCaseInsensitiveMatch(const WyString& a, const WyString& b);
    /// Orders by the lower-cased code units' values.
    static bool IsCaseInsensitiveLessThan(const WyString& a, const WyString& b);
    /// Negative, zero or positive as `a` orders before, equal to, or after `b` ignoring case.
    static int CaseInsensitiveCompare(const WyString& a, const WyString& b);
    /// True when `text` begins with `prefix`, ignoring case.
    static bool CaseInsensitiveFindPatternAtStart(const WyString& text, const WyString& prefix);

    static wchar_t ToLower(wchar_t c);
    static wchar_t ToUpper(wchar_t c);
    static WyString ToUpperCase(const WyString& text);
    static WyString ToLowerCase(const WyString& text);

    /// Splits `text` at every character of `delimiters` and appends the pieces to `out`. Empty
    /// pieces are kept (a trailing delimiter gives a last empty piece), nothing is trimmed, and an
    /// empty text appends nothing. Both flags are accepted for the callers' sake and must be false.
    static void Tokenize(const WyString& text, const WyString& delimiters, WyStringVector& out,
                         bool trimTokens, bool skipEmpty);

    /// `text` with every occurrence of `pattern` replaced by `replacement`, left to right.
    static WyString ReplacePatternInString(const WyString& text, const WyString& pattern,
                                           const WyString& replacement);
};
