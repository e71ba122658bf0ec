// The selecting import source: preparations go to the wrapped source unchanged, and each Get skips
// the records of objects that are not selected.
#include "import/selection/SelectingImport.h"

namespace {

// A search pattern that matches `name` only.
WyString ExactPattern(const WyString& name) {
    WyString pattern;
    for (wchar_t c : name) {
        if (c == L'%' || c == L'_' || c == L'\\')
            pattern += L'\\';
        pattern += c;
    }
    return pattern;
}

// The next record of the wrapped source's listing that `selected` accepts.
template <class Record, class Selected>
bool NextSelected(MIMetaDataImport& source, Record& record, Selected selected) {
    while (source.Get(record))
        if (selected(record))
            return true;
    return false;
}

} // namespace

SelectingImport::SelectingImport(std::unique_ptr<MIMetaDataImport> source, ObjectSelection selection)
    : m_source(std::move(source)), m_selection(std::move(selection)) {}

SelectingImport::~SelectingImport() = default;

void SelectingImport::OpenConnection(WyString& source, WyString& user, WyString& password, bool flag) {
    m_source->OpenConnection(source, user, password, flag);
}

void SelectingImport::CloseConnection() {
    m_source->CloseConnection();
}

void SelectingImport::SetTargetType(TargetType type) {
    m_source->SetTargetType(type);
}

void SelectingImport::GetDefaultCatalog(WyString& catalog) {
    m_source->GetDefaultCatalog(catalog);
}

void SelectingImport::GetTargetDBType(TargetType& type) {
    m_source->GetTargetDBType(type);
}

void SelectingImport::PrepareForCatalog(WyString& catalog) {
    m_source->PrepareForCatalog(catalog);
}

void SelectingImport::PrepareForSchema(WyString& catalog, WyString& schema) {
    m_schemaListingCatalog = catalog == L"%" ? WyString() : catalog;
    m_source->PrepareForSchema(catalog, schema);
}

void SelectingImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) {
    m_source->PrepareForTable(catalog, schema, table, tableType);
}

void SelectingImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table,
                                       WyString& column) {
    m_source->PrepareForColumn(catalog, schema, table, column);
}

void SelectingImport::PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) {
    m_source->PrepareForPrimaryKey(catalog, schema, table);
}

void SelectingImport::PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                           WyString& fkCatalog, WyString& fkSchema, WyString& fkTable) {
    m_source->PrepareForForeignKey(pkCatalog, pkSchema, pkTable, fkCatalog, fkSchema, fkTable);
}

bool SelectingImport::Get(MICatalog& record) {
    return NextSelected(*m_source, record, [&](const MICatalog& catalog) {
        return m_selection.CatalogSelected(catalog.catalog_);
    });
}

bool SelectingImport::Get(MISchema& record) {
    return NextSelected(*m_source, record, [&](const MISchema& schema) {
        return m_selection.SchemaSelected(schema.catalog_.empty() ? m_schemaListingCatalog : schema.catalog_,
                                          schema.schema_);
    });
}

bool SelectingImport::Get(MITable& record) {
    return NextSelected(*m_source, record, [&](const MITable& table) {
        return TableSelected(table.catalog_, table.schema_, table.table_);
    });
}

bool SelectingImport::Get(MIColumn& record) {
    return NextSelected(*m_source, record, [&](const MIColumn& column) {
        return TableSelected(column.catalog_, column.schema_, column.table_);
    });
}

bool SelectingImport::Get(MIPrimaryKey& record) {
    return NextSelected(*m_source, record, [&](const MIPrimaryKey& key) {
        return TableSelected(key.catalog_, key.schema_, key.table_);
    });
}

bool SelectingImport::Get(MIForeignKey& record) {
    return NextSelected(*m_source, record, [&](const MIForeignKey& key) {
        return TableSelected(key.fkCatalog_, key.fkSchema_, key.fkTable_) &&
               TableSelected(key.pkCatalog_, key.pkSchema_, key.pkTable_);
    });
}

bool SelectingImport::Get(MIViewLink& record) {
    return NextSelected(*m_source, record, [&](const MIViewLink& link) {
        return !ViewObjectLeftOut(link.source_) && !ViewObjectLeftOut(link.destination_);
    });
}

bool SelectingImport::GetFeatures(SUFeaturesTable& features, TargetType& targetType) {
    return m_source->GetFeatures(features, targetType);
}

bool SelectingImport::GetIsTavrinMetadata() {
    return m_source->GetIsTavrinMetadata();
}

bool SelectingImport::GetTavrinEAI() {
    return m_source->GetTavrinEAI();
}

void SelectingImport::GetPickList(MIColumn& column) {
    m_source->GetPickList(column);
}

void SelectingImport::PrepareForViewLink() {
    m_source->PrepareForViewLink();
}

bool SelectingImport::TableSelected(const WyString& catalog, const WyString& schema, const WyString& table) {
    if (!m_lastKnown || table != m_lastTable || schema != m_lastSchema || catalog != m_lastCatalog) {
        m_lastSelected = m_selection.TableSelected(catalog, schema, table);
        m_lastCatalog = catalog;
        m_lastSchema = schema;
        m_lastTable = table;
        m_lastKnown = true;
    }
    return m_lastSelected;
}

bool SelectingImport::ViewObjectLeftOut(const WyString& name) {
    const auto known = m_viewObjectsLeftOut.find(name);
    if (known != m_viewObjectsLeftOut.end())
        return known->second;
    WyString any, pattern = ExactPattern(name);
    m_source->PrepareForTable(any, any, pattern, 0);
    bool held = false, selected = false;
    for (MITable table; !selected && m_source->Get(table);) {
        if (table.table_ != name)
            continue;
        held = true;
        selected = TableSelected(table.catalog_, table.schema_, table.table_);
    }
    return m_viewObjectsLeftOut[name] = held && !selected;
}
