// Conversion between WyString (32-bit code units) and the 16-bit UTF-16 texts of unixODBC's wide
// entry points, whose SQLWCHAR is 16 bits wide whatever wchar_t is.
#pragma once

#include "platform/WyString.h"

#include <cstddef>
#include <string>

/// UTF-16 form of `text`: a code point above U+FFFF becomes a surrogate pair; a code unit that is
/// not a Unicode scalar value (a surrogate, a negative value, or above 0x10FFFF) becomes U+FFFD.
std::u16string WideToUtf16(const WyString& text);

/// Wide form of `length` UTF-16 code units at `text`: a surrogate pair becomes its code point, and
/// a surrogate that is not part of a pair becomes U+FFFD. Nothing is dropped.
WyString Utf16ToWide(const char16_t* text, size_t length);

inline WyString Utf16ToWide(const std::u16string& text) {
    return Utf16ToWide(text.data(), text.size());
}
