// Capturing a live import source as a snapshot. The whole document is built before anything is
// written, so a source that fails half way leaves the stream untouched rather than truncated.
#include "import/snapshot/SnapshotWriter.h"

#include "import/SearchPattern.h"
#include "import/memory/MemoryImport.h"
#include "import/snapshot/SnapshotFields.h"
#include "platform/BaseStringUtil.h"

#include <nlohmann/json.hpp>

#include <set>
#include <tuple>
#include <type_traits>
#include <variant>

namespace {

using Json = nlohmann::ordered_json;

std::string Utf8(const WyString& text) {
    std::string out;
    BaseStringUtil::AppendUtf8(text, out);
    return out;
}

// A field's value as the reader expects it; see the reader for the kinds.
Json ValueJson(const WyString& text) {
    return Utf8(text);
}

template <class Scalar, std::enable_if_t<std::is_arithmetic_v<Scalar>, int> = 0>
Json ValueJson(Scalar value) {
    return value;
}

Json ValueJson(WyDataType type) {
    if (const char* name = WyDataTypeName(type))
        return name;
    return static_cast<int32_t>(type);
}

Json ValueJson(const WyStringVector& texts) {
    Json list = Json::array();
    for (const WyString& text : texts)
        list.push_back(Utf8(text));
    return list;
}

template <class Record> Json ValueJson(const std::vector<Record>& records);

// Every field of the record, in its layout's order.
template <class Record> Json RecordJson(const Record& record) {
    Json object = Json::object();
    for (const snapshot_fields::Field<Record>& field : snapshot_fields::Layout<Record>::kFields)
        std::visit([&](auto member) { object[field.name] = ValueJson(record.*member); }, field.member);
    return object;
}

template <class Record> Json ValueJson(const std::vector<Record>& records) {
    Json list = Json::array();
    for (const Record& record : records)
        list.push_back(RecordJson(record));
    return list;
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

// The document's top-level sections in layout order. Pick lists come already rendered: they keep
// the order in which the capture met them, which a map of the records would lose.
class DocumentWriter {
public:
    DocumentWriter(const SourceMetadata& captured, Json& pickLists)
        : m_captured(captured), m_pickLists(pickLists) {}

    Json operator()(snapshot_fields::SourceHeader) const { return RecordJson(m_captured); }
    Json operator()(std::map<WyString, MIColumnPickListFieldVector> SourceMetadata::*) const {
        return std::move(m_pickLists);
    }
    template <class List> Json operator()(List SourceMetadata::*member) const {
        return ValueJson(m_captured.*member);
    }

private:
    const SourceMetadata& m_captured;
    Json& m_pickLists;
};

} // namespace

void WriteSnapshot(MIMetaDataImport& source, int32_t callInterface, std::ostream& out) {
    SUFeaturesTable features;
    TargetType targetType = kTargetDefault;
    source.GetFeatures(features, targetType);

    SourceMetadata captured;
    captured.callInterface = callInterface;
    captured.targetType = static_cast<int32_t>(targetType);
    captured.packagedApplication = source.GetIsTavrinMetadata();
    captured.eai = source.GetTavrinEAI();

    WyString all;
    std::vector<WyString> catalogNames;
    source.PrepareForCatalog(all);
    Drain<MICatalog>(source, [&](const MICatalog& record) {
        captured.catalogs.push_back(record);
        catalogNames.push_back(record.catalog_);
    });

    // Schemas are listed catalog by catalog, as a walk asks for them. NOTE: psqlODBC lists schemas
    // with an empty catalog although its tables carry one (observed against PostgreSQL 15); the
    // live source lets such a schema through for any catalog, while a snapshot selects schemas by
    // their catalog, so the capture records the catalog that was asked for.
    std::set<std::pair<WyString, WyString>> capturedSchemas;
    if (catalogNames.empty())
        catalogNames.push_back(all);
    for (WyString& catalog : catalogNames) {
        // The catalog argument is a search pattern: a name such as "a\\b" or "a_b" must select
        // its own schemas, not those of "a\b" or "axb".
        WyString pattern = ExactSearchPattern(catalog);
        source.PrepareForSchema(pattern, all);
        Drain<MISchema>(source, [&](const MISchema& record) {
            MISchema schema = record;
            if (schema.catalog_.empty())
                schema.catalog_ = catalog;
            if (capturedSchemas.emplace(schema.catalog_, schema.schema_).second)
                captured.schemas.push_back(schema);
        });
    }

    source.PrepareForTable(all, all, all, 0);
    Drain<MITable>(source, [&](const MITable& record) { captured.tables.push_back(record); });

    std::set<TableName> listed;
    for (const MITable& table : captured.tables)
        listed.emplace(table.catalog_, table.schema_, table.table_);

    Json pickLists = Json::object();
    std::set<WyString> pickListsAsked;
    std::set<TableName> walked;
    // The preparations take the names by reference and a source may rewrite them, so the walk
    // works on a copy: the capture keeps the tables as they were listed.
    std::vector<MITable> tables = captured.tables;
    for (MITable& table : tables) {
        const TableName name(table.catalog_, table.schema_, table.table_);
        // A table listed twice (say once per table type) still owns its columns only once.
        if (!walked.insert(name).second)
            continue;
        WyString catalog = ExactSearchPattern(table.catalog_), schema = ExactSearchPattern(table.schema_),
                 tableName = ExactSearchPattern(table.table_);
        source.PrepareForColumn(catalog, schema, tableName, all);
        Drain<MIColumn>(source, [&](const MIColumn& column) {
            if (!BelongsTo(name, TableName(column.catalog_, column.schema_, column.table_), listed))
                return;
            captured.columns.push_back(column);
            if (column.picklistName.empty() || !pickListsAsked.insert(column.picklistName).second)
                return;
            MIColumnPickListFieldVector list;
            if (CapturePickList(source, column, list))
                pickLists[Utf8(column.picklistName)] = ValueJson(list);
        });
        source.PrepareForPrimaryKey(table.catalog_, table.schema_, table.table_);
        Drain<MIPrimaryKey>(source, [&](const MIPrimaryKey& key) {
            if (BelongsTo(name, TableName(key.catalog_, key.schema_, key.table_), listed))
                captured.primaryKeys.push_back(key);
        });
        source.PrepareForForeignKey(all, all, all, table.catalog_, table.schema_, table.table_);
        Drain<MIForeignKey>(source, [&](const MIForeignKey& key) {
            if (BelongsTo(name, TableName(key.fkCatalog_, key.fkSchema_, key.fkTable_), listed))
                captured.foreignKeys.push_back(key);
        });
    }

    // The interface reaches a pick list only through a column that names it. An in-memory source
    // may hold lists no column names; they are kept too, so that reading the capture gives back
    // the source it was taken from.
    if (const auto* memory = dynamic_cast<const MemoryImport*>(&source))
        for (const auto& [name, list] : memory->Metadata().pickLists)
            if (pickListsAsked.insert(name).second)
                pickLists[Utf8(name)] = ValueJson(list);

    source.PrepareForViewLink();
    Drain<MIViewLink>(source, [&](const MIViewLink& link) { captured.viewLinks.push_back(link); });

    Json document;
    document["format"] = snapshot_fields::kFormatName;
    const DocumentWriter writer(captured, pickLists);
    for (const snapshot_fields::SectionEntry& entry : snapshot_fields::kSections)
        document[entry.name] = std::visit(writer, entry.section);
    out << document.dump(2) << '\n';
}
