// udmlgen diff: what the source would declare compared with what the --existing files declare.
#pragma once

#include "Options.h"

namespace udmlgen {

/// Exit status of a diff that found differences; 0 is none, 1 a failure, 2 a usage error.
constexpr int kExitDifferences = 3;

/// Walks the source as a generation would, comparing each statement with the repository as it
/// is written, and reports what was added, removed and changed, as text or JSON.
int Diff(const Options& options);

} // namespace udmlgen
