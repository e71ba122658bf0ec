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

/// The snapshot source as an import source like any other: OpenConnection reads the file that
/// `source` names (user and password are ignored), CloseConnection lets it go. Before a file is
/// open, preparations throw ErrorMessage and every Get answers false.
class SnapshotImport : public MIMetaDataImportBase {
public:
    SnapshotImport();
    ~SnapshotImport() override;

    /// The call-interface type the snapshot records; kCLI_ODBC350 while no file is open.
    int32_t CallInterface() const;
    /// The in-memory source serving the open file, or null while none is open.
    const MemoryImport* Memory() const { return m_import.get(); }

    void OpenConnection(WyString& source, WyString& user, WyString& password, bool) override;
    void CloseConnection() override;
    void PrepareForCatalog(WyString& catalog) override;
    void PrepareForSchema(WyString& catalog, WyString& schema) override;
    void PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) override;
    void PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) override;
    void PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) override;
    void PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable, WyString& fkCatalog,
                              WyString& fkSchema, WyString& fkTable) override;
    bool Get(MICatalog& record) override;
    bool Get(MISchema& record) override;
    bool Get(MITable& record) override;
    bool Get(MIColumn& record) override;
    bool Get(MIPrimaryKey& record) override;
    bool Get(MIForeignKey& record) override;
    bool Get(MIViewLink& record) override;
    bool GetFeatures(SUFeaturesTable& features, TargetType& targetType) override;
    bool GetIsTavrinMetadata() override;
    bool GetTavrinEAI() override;
    void GetPickList(MIColumn& column) override;
    void PrepareForViewLink() override;

    using MIMetaDataImportBase::Get;

private:
    MemoryImport& Open();

    std::unique_ptr<MemoryImport> m_import;
};
