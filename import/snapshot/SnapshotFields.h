// The layout of every snapshot record: its JSON field names in written order, where each lives in
// the record, and (through the member's type) how its value is spelled. The reader and the writer
// both walk these tables, so a field can never be known to one of them and missing from the other.
#pragma once

#include "import/memory/MemoryImport.h"

#include <variant>

namespace snapshot_fields {

/// Where a field lives in `Record`. The alternative held is the field's kind: text, flag, an
/// unsigned or signed integer of that width, a data type (a name, or a number outside the
/// enumeration), a list of texts, or a list of pick-list fields.
template <class Record>
using Member =
    std::variant<WyString Record::*, bool Record::*, uint16 Record::*, uint32 Record::*, int32_t Record::*,
                 WyDataType Record::*, WyStringVector Record::*, MIColumnPickListFieldVector Record::*>;

/// One field of a record: its JSON name and its place.
template <class Record> struct Field {
    const char* name;
    Member<Record> member;
};

/// `Layout<Record>::kFields` lists the record's fields in the order a capture writes them.
template <class Record> struct Layout;

/// The "source" object: the four facts about the source as a whole.
template <> struct Layout<SourceMetadata> {
    static constexpr Field<SourceMetadata> kFields[] = {
        {"callInterface", &SourceMetadata::callInterface},
        {"targetType", &SourceMetadata::targetType},
        {"packagedApplication", &SourceMetadata::packagedApplication},
        {"eai", &SourceMetadata::eai},
    };
};

template <> struct Layout<MICatalog> {
    static constexpr Field<MICatalog> kFields[] = {
        {"catalog", &MICatalog::catalog_},
        {"remarks", &MICatalog::remarks_},
    };
};

template <> struct Layout<MISchema> {
    static constexpr Field<MISchema> kFields[] = {
        {"catalog", &MISchema::catalog_},
        {"schema", &MISchema::schema_},
        {"remarks", &MISchema::remarks_},
        {"wsInputMsg", &MISchema::wsInputMsg_},
    };
};

template <> struct Layout<MITable> {
    static constexpr Field<MITable> kFields[] = {
        {"catalog", &MITable::catalog_},
        {"schema", &MITable::schema_},
        {"table", &MITable::table_},
        {"tableType", &MITable::tableType_},
        {"remarks", &MITable::remarks_},
        {"fullyQualifiedName", &MITable::fullyQualifiedName_},
        {"userName", &MITable::userName_},
        {"wsXSLT", &MITable::wsXSLT_},
        {"wsxsd", &MITable::wsxsd_},
        {"effFlexfieldCode", &MITable::effFlexfieldCode_},
        {"isProblematic", &MITable::isProblematic_},
    };
};

template <> struct Layout<MIColumnPickListField> {
    static constexpr Field<MIColumnPickListField> kFields[] = {
        {"fieldName", &MIColumnPickListField::fieldName},
        {"pickFieldName", &MIColumnPickListField::pickFieldName},
    };
};

template <> struct Layout<MIColumn> {
    static constexpr Field<MIColumn> kFields[] = {
        {"catalog", &MIColumn::catalog_},
        {"schema", &MIColumn::schema_},
        {"table", &MIColumn::table_},
        {"columnName", &MIColumn::columnName_},
        {"dataType", &MIColumn::dataType_},
        {"typeName", &MIColumn::typeName_},
        {"precision", &MIColumn::precision_},
        {"length", &MIColumn::length_},
        {"scale", &MIColumn::scale_},
        {"radix", &MIColumn::radix_},
        {"nullable", &MIColumn::nullable_},
        {"remarks", &MIColumn::remarks_},
        {"fullyQualifiedName", &MIColumn::fullyQualifiedName_},
        {"userName", &MIColumn::userName_},
        {"isHidden", &MIColumn::isHidden_},
        {"effContextName", &MIColumn::effContextName_},
        {"effColumnProperties", &MIColumn::effColumnProperties_},
        {"MVLINK_NAME", &MIColumn::MVLINK_NAME},
        {"DEST_FLD_NAME", &MIColumn::DEST_FLD_NAME},
        {"picklistName", &MIColumn::picklistName},
        {"multiValued", &MIColumn::multiValued},
        {"field_Id", &MIColumn::field_Id},
        {"pickListFieldName", &MIColumn::pickListFieldName},
        {"inputParam", &MIColumn::inputParam_},
    };
};

template <> struct Layout<MIPrimaryKey> {
    static constexpr Field<MIPrimaryKey> kFields[] = {
        {"catalog", &MIPrimaryKey::catalog_},
        {"schema", &MIPrimaryKey::schema_},
        {"table", &MIPrimaryKey::table_},
        {"columnName", &MIPrimaryKey::columnName_},
        {"keySequence", &MIPrimaryKey::keySequence_},
        {"primaryKeyName", &MIPrimaryKey::primaryKeyName_},
    };
};

template <> struct Layout<MIForeignKey> {
    static constexpr Field<MIForeignKey> kFields[] = {
        {"pkCatalog", &MIForeignKey::pkCatalog_},
        {"pkSchema", &MIForeignKey::pkSchema_},
        {"pkTable", &MIForeignKey::pkTable_},
        {"pkColumnName", &MIForeignKey::pkColumnName_},
        {"fkCatalog", &MIForeignKey::fkCatalog_},
        {"fkSchema", &MIForeignKey::fkSchema_},
        {"fkTable", &MIForeignKey::fkTable_},
        {"fkColumnName", &MIForeignKey::fkColumnName_},
        {"keySequence", &MIForeignKey::keySequence_},
        {"updateRule", &MIForeignKey::updateRule_},
        {"deleteRule", &MIForeignKey::deleteRule_},
        {"foreignKeyName", &MIForeignKey::foreignKeyName_},
        {"primaryKeyName", &MIForeignKey::primaryKeyName_},
    };
};

template <> struct Layout<MIViewLink> {
    static constexpr Field<MIViewLink> kFields[] = {
        {"name", &MIViewLink::name_},
        {"source", &MIViewLink::source_},
        {"destination", &MIViewLink::destination_},
        {"cardinality", &MIViewLink::cardinality_},
        {"sourceColumns", &MIViewLink::sourceColumns_},
        {"destinationColumns", &MIViewLink::destinationColumns_},
    };
};

/// The "format" value that names this layout.
constexpr const char kFormatName[] = "udml-snapshot-1";

/// Stands for the "source" object, which is held by SourceMetadata itself rather than a member.
struct SourceHeader {};

/// What a top-level section holds: the source header, one list of records, or the pick lists.
using Section = std::variant<
    SourceHeader, std::vector<MICatalog> SourceMetadata::*, std::vector<MISchema> SourceMetadata::*,
    std::vector<MITable> SourceMetadata::*, MIColumnVector SourceMetadata::*,
    MIPrimaryKeyVector SourceMetadata::*, MIForeignKeyVector SourceMetadata::*,
    std::map<WyString, MIColumnPickListFieldVector> SourceMetadata::*, MIViewLinkVector SourceMetadata::*>;

struct SectionEntry {
    const char* name;
    Section section;
};

/// The sections after "format", in the order a capture writes them.
inline constexpr SectionEntry kSections[] = {
    {"source", SourceHeader{}},
    {"catalogs", &SourceMetadata::catalogs},
    {"schemas", &SourceMetadata::schemas},
    {"tables", &SourceMetadata::tables},
    {"columns", &SourceMetadata::columns},
    {"primaryKeys", &SourceMetadata::primaryKeys},
    {"foreignKeys", &SourceMetadata::foreignKeys},
    {"pickLists", &SourceMetadata::pickLists},
    {"viewLinks", &SourceMetadata::viewLinks},
};

} // namespace snapshot_fields
