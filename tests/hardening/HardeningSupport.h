// Helpers of the hardening tests: a large generated source, and the rule an interrupted walk's
// output must follow against the output of the same walk left to finish.
#pragma once

#include "import/memory/MemoryImport.h"

#include <string>

/// A source of `catalogs` x `schemasPerCatalog` x `tablesPerSchema` tables, each with a few
/// columns, a primary key and (after the first of its schema) a foreign key to the table before it.
SourceMetadata LargeSource(int catalogs, int schemasPerCatalog, int tablesPerSchema);

/// Empty when `partial` is what an interrupted walk may leave of `complete`: the statements of
/// `complete` from its start, byte for byte, of which the last may be cut short: it begins with the
/// first line of its complete form, ends with ";\n", and each of its column entries is one of the
/// complete form (entries missing, none empty). Otherwise says where the texts part.
std::string CheckInterruptedOutput(const std::string& complete, const std::string& partial);
