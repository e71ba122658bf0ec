// Captures any live import source as a snapshot file, so that a catalog seen once through ODBC can
// be replayed later (and in tests) without the database.
#pragma once

#include "import/MIMetaDataImport.h"

#include <cstdint>
#include <cstdio>
#include <ostream>

/// Writes every record `source` delivers, in the "udml-snapshot-1" format, to `out`: every field
/// of every record, keys in a fixed order, two-space indentation and a final newline, so that two
/// captures of an unchanged source are byte-identical. The walk: GetFeatures, GetIsTavrinMetadata
/// and GetTavrinEAI; every catalog, schema and table (all table types); for each distinct table
/// in that order its columns, primary keys and foreign keys (the table on the foreign-key side);
/// the pick list of each distinct non-empty `picklistName` (and, for an in-memory or snapshot
/// source, every other list it holds); the view links. Records a pattern
/// request delivers for other tables are left to those tables' own turn. `callInterface` is
/// recorded as the source's call-interface type. Texts are written as UTF-8 (a code unit that is
/// not a Unicode scalar value becomes U+FFFD). Each list is written as the source delivers it
/// (primary and foreign keys wait in temporary files while the columns are written), so memory
/// holds only the listed tables' names and the pick lists. ErrorMessage from the source passes
/// through, and then `out` holds the capture up to that point.
void WriteSnapshot(MIMetaDataImport& source, int32_t callInterface, std::ostream& out);

/// As above, onto `file` as the capture goes. Answers false when a write to `file` failed (errno
/// then tells why); the walk stops at the next table.
bool WriteSnapshot(MIMetaDataImport& source, int32_t callInterface, std::FILE* file);
