// Wide texts for the fuzz targets, drawn mostly from characters that matter to the code under
// test, sometimes any 32-bit code unit at all (surrogates, negative values and values past
// U+10FFFF included).
#pragma once

#include "platform/WyString.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

inline WyString FuzzText(FuzzedDataProvider& in, const WyString& alphabet, size_t maxLength) {
    const size_t length = in.ConsumeIntegralInRange<size_t>(0, maxLength);
    WyString text;
    while (text.size() < length && in.remaining_bytes() > 0) {
        const uint8_t pick = in.ConsumeIntegral<uint8_t>();
        if (pick < 224)
            text += alphabet[pick % alphabet.size()];
        else
            text += static_cast<wchar_t>(in.ConsumeIntegral<int32_t>());
    }
    return text;
}
