// Capturing a live import source as a snapshot. The whole document is built before anything is
// written, so a source that fails half way leaves the stream untouched rather than truncated.
#include "import/snapshot/SnapshotWriter.h"

#include "import/memory/MemoryImport.h"
#include "import/snapshot/SnapshotImport.h"
#include "platform/BaseStringUtil.h"

#include <nlohmann/json.hpp>

#include <set>
#include <tuple>

namespace {

using Json = nlohmann::ordered_json;

std::string Utf8(const WyString& text) {
    std::string out;
    BaseStringUtil::AppendUtf8(text, out);
    return out;
}

Json DataTypeValue(WyDataType type) {
    if (const char* name = WyDataTypeName(type))
        return name;
    return static_cast<int32_t>(type);
}

Json PickListJson(const MIColumnPickListFieldVector& fields) {
    Json list = Json::array();
    for (const MIColumnPickListField& field : fields)
        list.push_back(
            Json{{"fieldName", Utf8(field.fieldName)}, {"pickFieldName", Utf8(field.pickFieldName)}});
    return list;
}

Json TextListJson(const WyStringVector& texts) {
    Json list = Json::array();
    for (const WyString& text : texts)
        list.push_back(Utf8(text));
    return list;
}

Json CatalogJson(const MICatalog& record) {
    return Json{{"catalog", Utf8(record.catalog_)}, {"remarks", Utf8(record.remarks_)}};
}

Json SchemaJson(const MISchema& record) {
    return Json{{"catalog", Utf8(record.catalog_)},
                {"schema", Utf8(record.schema_)},
                {"remarks", Utf8(record.remarks_)},
                {"wsInputMsg", Utf8(record.wsInputMsg_)}};
}

Json TableJson(const MITable& record) {
    return Json{
        {"catalog", Utf8(record.catalog_)},      {"schema", Utf8(record.schema_)},
        {"table", Utf8(record.table_)},          {"tableType", Utf8(record.tableType_)},
        {"remarks", Utf8(record.remarks_)},      {"fullyQualifiedName", Utf8(record.fullyQualifiedName_)},
        {"userName", Utf8(record.userName_)},    {"wsXSLT", Utf8(record.wsXSLT_)},
        {"wsxsd", Utf8(record.wsxsd_)},          {"effFlexfieldCode", Utf8(record.effFlexfieldCode_)},
        {"isProblematic", record.isProblematic_}};
}

Json ColumnJson(const MIColumn& record) {
    return Json{{"catalog", Utf8(record.catalog_)},
                {"schema", Utf8(record.schema_)},
                {"table", Utf8(record.table_)},
                {"columnName", Utf8(record.columnName_)},
                {"dataType", DataTypeValue(record.dataType_)},
                {"typeName", Utf8(record.typeName_)},
                {"precision", record.precision_},
                {"length", record.length_},
                {"scale", record.scale_},
                {"radix", record.radix_},
                {"nullable", record.nullable_},
                {"remarks", Utf8(record.remarks_)},
                {"fullyQualifiedName", Utf8(record.fullyQualifiedName_)},
                {"userName", Utf8(record.userName_)},
                {"isHidden", record.isHidden_},
                {"effContextName", Utf8(record.effContextName_)},
                {"effColumnProperties", Utf8(record.effColumnProperties_)},
                {"MVLINK_NAME", Utf8(record.MVLINK_NAME)},
                {"DEST_FLD_NAME", Utf8(record.DEST_FLD_NAME)},
                {"picklistName", Utf8(record.picklistName)},
                {"multiValued", record.multiValued},
                {"field_Id", Utf8(record.field_Id)},
                {"pickListFieldName", PickListJson(record.pickListFieldName)},
                {"inputParam", record.inputParam_}};
}

Json PrimaryKeyJson(const MIPrimaryKey& record) {
    return Json{{"catalog", Utf8(record.catalog_)},   {"schema", Utf8(record.schema_)},
                {"table", Utf8(record.table_)},       {"columnName", Utf8(record.columnName_)},
                {"keySequence", record.keySequence_}, {"primaryKeyName", Utf8(record.primaryKeyName_)}};
}

Json ForeignKeyJson(const MIForeignKey& record) {
    return Json{{"pkCatalog", Utf8(record.pkCatalog_)},
                {"pkSchema", Utf8(record.pkSchema_)},
                {"pkTable", Utf8(record.pkTable_)},
                {"pkColumnName", Utf8(record.pkColumnName_)},
                {"fkCatalog", Utf8(record.fkCatalog_)},
                {"fkSchema", Utf8(record.fkSchema_)},
                {"fkTable", Utf8(record.fkTable_)},
                {"fkColumnName", Utf8(record.fkColumnName_)},
                {"keySequence", record.keySequence_},
                {"updateRule", record.updateRule_},
                {"deleteRule", record.deleteRule_},
                {"foreignKeyName", Utf8(record.foreignKeyName_)},
                {"primaryKeyName", Utf8(record.primaryKeyName_)}};
}

Json ViewLinkJson(const MIViewLink& record) {
    return Json{{"name", Utf8(record.name_)},
                {"source", Utf8(record.source_)},
                {"destination", Utf8(record.destination_)},
                {"cardinality", record.cardinality_},
                {"sourceColumns", TextListJson(record.sourceColumns_)},
                {"destinationColumns", TextListJson(record.destinationColumns_)}};
}

// Drains the listing just prepared; each record starts fresh, so no field leaks between rows.
template <class Record, class Keep> void Drain(MIMetaDataImport& source, Keep keep) {
    for (;;) {
        Record record;
        if (!source.Get(record))
            return;
        keep(record);
    }
}

using TableName = std::tuple<WyString, WyString, WyString>;

// Whether a record that the listing for `table` delivered, naming table `owner`, is `table`'s.
// Empty catalog and schema arguments select every name, and search patterns select look-alikes
// ("A_B" brings "AXB"); such records are left to their own table's turn when the listing has one.
// A record naming no listed table is kept: some drivers report a catalog or schema in one catalog
// function and not in another.
bool BelongsTo(const TableName& table, const TableName& owner, const std::set<TableName>& listed) {
    if (owner == table)
        return true;
    if (std::get<2>(owner) != std::get<2>(table) || listed.count(owner) != 0)
        return false;
    return (std::get<0>(table).empty() || std::get<0>(table) == std::get<0>(owner)) &&
           (std::get<1>(table).empty() || std::get<1>(table) == std::get<1>(owner));
}

// The pick list `column` names, or false when the source has none. GetPickList leaves the column
// alone when it knows no such list, so two probes tell "no list" from "an empty list".
bool CapturePickList(MIMetaDataImport& source, const MIColumn& column, MIColumnPickListFieldVector& list) {
    MIColumn probe = column;
    probe.pickListFieldName.clear();
    source.GetPickList(probe);
    if (!probe.pickListFieldName.empty()) {
        list = probe.pickListFieldName;
        return true;
    }
    MIColumn marked = column;
    marked.pickListFieldName.assign(1, MIColumnPickListField{L"?", L"?"});
    source.GetPickList(marked);
    list.clear();
    return marked.pickListFieldName.empty();
}

} // namespace

void WriteSnapshot(MIMetaDataImport& source, int32_t callInterface, std::ostream& out) {
    SUFeaturesTable features;
    TargetType targetType = kTargetDefault;
    source.GetFeatures(features, targetType);

    Json document;
    document["format"] = "udml-snapshot-1";
    document["source"] = Json{{"callInterface", callInterface},
                              {"targetType", static_cast<int32_t>(targetType)},
                              {"packagedApplication", source.GetIsTavrinMetadata()},
                              {"eai", source.GetTavrinEAI()}};

    WyString all;
    Json catalogs = Json::array();
    std::vector<WyString> catalogNames;
    source.PrepareForCatalog(all);
    Drain<MICatalog>(source, [&](const MICatalog& record) {
        catalogs.push_back(CatalogJson(record));
        catalogNames.push_back(record.catalog_);
    });

    // Schemas are listed catalog by catalog, as a walk asks for them. NOTE: psqlODBC lists schemas
    // with an empty catalog although its tables carry one (observed against PostgreSQL 15); the
    // live source lets such a schema through for any catalog, while a snapshot selects schemas by
    // their catalog, so the capture records the catalog that was asked for.
    Json schemas = Json::array();
    std::set<std::pair<WyString, WyString>> capturedSchemas;
    if (catalogNames.empty())
        catalogNames.push_back(all);
    for (WyString& catalog : catalogNames) {
        source.PrepareForSchema(catalog, all);
        Drain<MISchema>(source, [&](const MISchema& record) {
            MISchema schema = record;
            if (schema.catalog_.empty())
                schema.catalog_ = catalog;
            if (capturedSchemas.emplace(schema.catalog_, schema.schema_).second)
                schemas.push_back(SchemaJson(schema));
        });
    }

    std::vector<MITable> tables;
    source.PrepareForTable(all, all, all, 0);
    Drain<MITable>(source, [&](const MITable& record) { tables.push_back(record); });

    std::set<TableName> listed;
    for (const MITable& table : tables)
        listed.emplace(table.catalog_, table.schema_, table.table_);

    Json tableList = Json::array();
    Json columns = Json::array();
    Json primaryKeys = Json::array();
    Json foreignKeys = Json::array();
    Json pickLists = Json::object();
    std::set<WyString> pickListsAsked;
    std::set<TableName> walked;
    for (MITable& table : tables) {
        tableList.push_back(TableJson(table));
        const TableName name(table.catalog_, table.schema_, table.table_);
        // A table listed twice (say once per table type) still owns its columns only once.
        if (!walked.insert(name).second)
            continue;
        source.PrepareForColumn(table.catalog_, table.schema_, table.table_, all);
        Drain<MIColumn>(source, [&](const MIColumn& column) {
            if (!BelongsTo(name, TableName(column.catalog_, column.schema_, column.table_), listed))
                return;
            columns.push_back(ColumnJson(column));
            if (column.picklistName.empty() || !pickListsAsked.insert(column.picklistName).second)
                return;
            MIColumnPickListFieldVector list;
            if (CapturePickList(source, column, list))
                pickLists[Utf8(column.picklistName)] = PickListJson(list);
        });
        source.PrepareForPrimaryKey(table.catalog_, table.schema_, table.table_);
        Drain<MIPrimaryKey>(source, [&](const MIPrimaryKey& key) {
            if (BelongsTo(name, TableName(key.catalog_, key.schema_, key.table_), listed))
                primaryKeys.push_back(PrimaryKeyJson(key));
        });
        source.PrepareForForeignKey(all, all, all, table.catalog_, table.schema_, table.table_);
        Drain<MIForeignKey>(source, [&](const MIForeignKey& key) {
            if (BelongsTo(name, TableName(key.fkCatalog_, key.fkSchema_, key.fkTable_), listed))
                foreignKeys.push_back(ForeignKeyJson(key));
        });
    }

    // The interface reaches a pick list only through a column that names it. An in-memory source
    // may hold lists no column names; they are kept too, so that reading the capture gives back
    // the source it was taken from.
    const MemoryImport* memory = dynamic_cast<const MemoryImport*>(&source);
    if (const SnapshotImport* snapshot = dynamic_cast<const SnapshotImport*>(&source))
        memory = snapshot->Memory();
    if (memory != nullptr)
        for (const auto& [name, list] : memory->Metadata().pickLists)
            if (pickListsAsked.insert(name).second)
                pickLists[Utf8(name)] = PickListJson(list);

    Json viewLinks = Json::array();
    source.PrepareForViewLink();
    Drain<MIViewLink>(source, [&](const MIViewLink& link) { viewLinks.push_back(ViewLinkJson(link)); });

    document["catalogs"] = std::move(catalogs);
    document["schemas"] = std::move(schemas);
    document["tables"] = std::move(tableList);
    document["columns"] = std::move(columns);
    document["primaryKeys"] = std::move(primaryKeys);
    document["foreignKeys"] = std::move(foreignKeys);
    document["pickLists"] = std::move(pickLists);
    document["viewLinks"] = std::move(viewLinks);
    out << document.dump(2) << '\n';
}
