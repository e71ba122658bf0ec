// The one way a fuzz target reports a broken property: print what broke and abort, which
// libFuzzer turns into a saved crash input.
#pragma once

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition, what)                                                                          \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "property broken at %s:%d: %s (%s)\n", __FILE__, __LINE__, what,            \
                         #condition);                                                                        \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (0)
