// The snapshot import source: one data source's metadata captured in a JSON file ("udml-snapshot-1").
// The reader is strict, so a damaged or hand-edited file fails with a message naming the file and
// the place instead of yielding half a catalog. The file is read in one pass that keeps only the
// names of the tables, columns and keys with their offsets in the file; a record is read again
// from the file when it is asked for, so memory stays flat however large the catalog.
#pragma once

#include "import/memory/MemoryImport.h"

#include <memory>
#include <string>

/// Parses snapshot text into memory (for small snapshots and tests). `fileName` only names the
/// input in messages. Throws ErrorMessage for invalid JSON or ill-formed UTF-8 (with line and
/// column), and for a missing or wrong "format", an unknown or repeated field, null, a value of
/// the wrong kind, or a number outside its field's range (with the field's path, such as
/// `columns[3].precision`). A leading UTF-8 byte order mark is ignored; a `\u` escape of a lone
/// surrogate reads as U+FFFD.
SourceMetadata ParseSnapshot(const std::string& text, const std::string& fileName);

/// Serves a snapshot file. It answers every request exactly as a MemoryImport over
/// ParseSnapshot of the same file would, in the same order. Catalogs, schemas, pick lists and
/// view links are held in memory; tables, columns and keys are read from the file as they are
/// delivered. Not for use from two threads at once.
class SnapshotImport : public MIMetaDataImportBase {
public:
    /// Reads and checks the whole file at `path` (a regular file; a device or pipe is refused,
    /// since it may never end). Throws ErrorMessage as ParseSnapshot does, and when the file
    /// cannot be opened or read. A Get that finds the file changed since throws ErrorMessage.
    explicit SnapshotImport(const std::string& path);
    ~SnapshotImport() override;

    /// The call-interface type to hand to the generator.
    int32_t CallInterface() const;
    /// Every pick list of the file, including those no column names.
    const std::map<WyString, MIColumnPickListFieldVector>& PickLists() const;

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
    struct State;
    std::unique_ptr<State> m_state;
};

/// Opens the snapshot file at `path`; see SnapshotImport.
std::unique_ptr<SnapshotImport> ReadSnapshotFile(const std::string& path);
