// An import source over metadata held in memory: the snapshot source reads a file into it, and
// tests and benchmarks build it in code.
#pragma once

#include "import/MIMetaDataImport.h"

#include <map>
#include <memory>

/// The metadata of one data source, every list in delivery order.
struct SourceMetadata {
    int32_t callInterface = ServerInfo::kCLI_ODBC350;
    int32_t targetType = kTargetDefault;
    bool packagedApplication = false;
    bool eai = false;
    std::vector<MICatalog> catalogs;
    std::vector<MISchema> schemas;
    std::vector<MITable> tables;
    MIColumnVector columns;
    MIPrimaryKeyVector primaryKeys;
    MIForeignKeyVector foreignKeys;
    std::map<WyString, MIColumnPickListFieldVector> pickLists;
    MIViewLinkVector viewLinks;
};

/// Serves a SourceMetadata. A PrepareFor... call selects the records of its list whose name
/// fields match its arguments (search patterns for catalogs, schemas, tables and columns, exact
/// names for keys; for foreign keys the pk arguments against the pk fields and the fk arguments
/// against the fk fields) and Get delivers them in list order. Each kind of listing has its own
/// cursor. Selections by exact names are served from an index, so a source of tens of thousands
/// of tables answers per-table requests without scanning every record.
class MemoryImport : public MIMetaDataImportBase {
public:
    explicit MemoryImport(std::shared_ptr<const SourceMetadata> metadata);
    ~MemoryImport() override;

    const SourceMetadata& Metadata() const { return *m_metadata; }

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
    /// Replaces the column's pick list with the list its `picklistName` names, if there is one.
    void GetPickList(MIColumn& column) override;
    void PrepareForViewLink() override;

    using MIMetaDataImportBase::Get;

private:
    struct Index;
    std::shared_ptr<const SourceMetadata> m_metadata;
    std::unique_ptr<Index> m_index;
    std::vector<size_t> m_catalogRows, m_schemaRows, m_tableRows, m_columnRows, m_keyRows, m_foreignKeyRows;
    size_t m_catalogNext = 0, m_schemaNext = 0, m_tableNext = 0, m_columnNext = 0, m_keyNext = 0,
           m_foreignKeyNext = 0, m_viewLinkNext = 0;
    bool m_viewLinksPrepared = false;
};
