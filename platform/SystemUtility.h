// The process's multibyte code page. This system always speaks UTF-8.
#pragma once

using MultiByteCodePage = unsigned int;

class SystemUtility {
public:
    static constexpr MultiByteCodePage kUtf8CodePage = 65001;
    /// The code page of every 8-bit text the generator writes: always UTF-8 (65001).
    static MultiByteCodePage GetMultiByteCodePage() { return kUtf8CodePage; }
};
