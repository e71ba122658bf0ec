// The writer tests' usual source: in-memory metadata behind the logging, fault-injecting wrapper,
// owned together so that a generator may take it over and delete it like any other source.
#pragma once

#include "FaultInjectingImport.h"
#include "import/memory/MemoryImport.h"

namespace fake_import_detail {
// Holds the in-memory source so that it is built before the wrapper that refers to it.
struct MemoryHolder {
    explicit MemoryHolder(SourceMetadata metadata)
        : memory(std::make_shared<const SourceMetadata>(std::move(metadata))) {}
    MemoryImport memory;
};
} // namespace fake_import_detail

class FakeImport : private fake_import_detail::MemoryHolder, public FaultInjectingImport {
public:
    /// An in-memory source over `metadata`, logged and scriptable through FaultInjectingImport.
    explicit FakeImport(SourceMetadata metadata = SourceMetadata())
        : MemoryHolder(std::move(metadata)), FaultInjectingImport(memory) {}
};
