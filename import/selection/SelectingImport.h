// An import source that shows only the catalogs, schemas and tables a selection names, over any
// other import source: every request, the view-link joins and a snapshot capture then see a source
// that holds only the selected objects.
#pragma once

#include "import/MIMetaDataImport.h"
#include "import/selection/ObjectSelection.h"

#include <map>
#include <memory>

/// Owns the source it wraps and passes every call on to it, leaving out what is not selected:
/// - catalogs, schemas and tables that the selection does not select;
/// - the columns and primary keys of tables not selected;
/// - foreign keys whose referencing or referenced table is not selected;
/// - view links whose source or destination names a table that the wrapped source holds but that
///   is not selected (a view object's table is known by name only, so one selected table of that
///   name keeps the link; a link to a table the source does not hold stays as it was).
/// Each record is judged by its own name fields, so a per-table request for a table not selected
/// gets what it gets for a table the source does not hold. A schema record without a catalog name
/// is judged under the catalog that was asked for (psqlODBC lists schemas so).
///
/// Get(MIViewLink) reads the wrapped source's table listing to learn which view objects are left
/// out, so it ends a table listing in progress; read view links after the tables, as the
/// generator and the snapshot capture do. Statistics, synonyms and privileges select nothing: the
/// selection cannot see which objects their records name.
class SelectingImport : public MIMetaDataImportBase {
public:
    SelectingImport(std::unique_ptr<MIMetaDataImport> source, ObjectSelection selection);
    ~SelectingImport() override;

    void OpenConnection(WyString& source, WyString& user, WyString& password, bool flag) override;
    void CloseConnection() override;
    void SetTargetType(TargetType type) override;
    void GetDefaultCatalog(WyString& catalog) override;
    void GetTargetDBType(TargetType& type) override;
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
    bool TableSelected(const WyString& catalog, const WyString& schema, const WyString& table);
    bool ViewObjectLeftOut(const WyString& name);

    std::unique_ptr<MIMetaDataImport> m_source;
    ObjectSelection m_selection;
    WyString m_schemaListingCatalog;
    // Columns and keys arrive table by table, so the last table's answer serves most records.
    WyString m_lastCatalog, m_lastSchema, m_lastTable;
    bool m_lastSelected = false, m_lastKnown = false;
    std::map<WyString, bool> m_viewObjectsLeftOut;
};
