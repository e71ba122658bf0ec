// The snapshot import source: one data source's metadata captured in a JSON file ("udml-snapshot-1")
// and served through the in-memory source. The reader is strict, so a damaged or hand-edited file
// fails with a message naming the file and the place instead of yielding half a catalog.
#pragma once

#include "import/memory/MemoryImport.h"

#include <memory>
#include <string>

/// Parses snapshot text. `fileName` only names the input in messages. Throws ErrorMessage for
/// invalid JSON or ill-formed UTF-8 (with line and column), and for a missing or wrong "format",
/// an unknown or repeated field, null, a value of the wrong kind, or a number outside its field's
/// range (with the field's path, such as `columns[3].precision`). A leading UTF-8 byte order mark
/// is ignored.
SourceMetadata ParseSnapshot(const std::string& text, const std::string& fileName);

/// Reads the snapshot file at `path` into a new in-memory source; the caller owns it. The
/// call-interface type to hand to the generator is `Metadata().callInterface`. Throws
/// ErrorMessage as ParseSnapshot does, and when the file cannot be read.
std::unique_ptr<MemoryImport> ReadSnapshotFile(const std::string& path);
