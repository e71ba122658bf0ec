// Short makers of catalog records, so that a test builds the source it needs in a few lines and
// every generator test describes its metadata the same way.
#pragma once

#include "import/memory/MemoryImport.h"

/// The catalog, schema and table a record belongs to.
struct TablePath {
    WyString catalog;
    WyString schema;
    WyString table;
};

inline MICatalog Catalog(const WyString& name) {
    MICatalog record;
    record.catalog_ = name;
    return record;
}

inline MISchema Schema(const WyString& catalog, const WyString& schema, const WyString& inputMsg = L"") {
    MISchema record;
    record.catalog_ = catalog;
    record.schema_ = schema;
    record.wsInputMsg_ = inputMsg;
    return record;
}

inline MITable Table(const TablePath& path, const WyString& uri = L"", const WyString& remarks = L"") {
    MITable record;
    record.catalog_ = path.catalog;
    record.schema_ = path.schema;
    record.table_ = path.table;
    record.tableType_ = L"TABLE";
    record.fullyQualifiedName_ = uri;
    record.remarks_ = remarks;
    return record;
}

inline MIColumn Column(const TablePath& path, const WyString& name, WyDataType type, uint32 precision,
                       uint16 nullable, const WyString& remarks = L"") {
    MIColumn record;
    record.catalog_ = path.catalog;
    record.schema_ = path.schema;
    record.table_ = path.table;
    record.columnName_ = name;
    record.dataType_ = type;
    record.precision_ = precision;
    record.length_ = precision;
    record.nullable_ = nullable;
    record.remarks_ = remarks;
    return record;
}

inline MIPrimaryKey PrimaryKey(const TablePath& path, const WyString& column, const WyString& name) {
    MIPrimaryKey record;
    record.catalog_ = path.catalog;
    record.schema_ = path.schema;
    record.table_ = path.table;
    record.columnName_ = column;
    record.keySequence_ = 1;
    record.primaryKeyName_ = name;
    return record;
}

/// A foreign-key row of `from` (column `fkColumn`) referencing the table `pkTable` of the same
/// catalog and schema.
inline MIForeignKey ForeignKey(const TablePath& from, const WyString& fkColumn, const WyString& pkTable,
                               const WyString& name = L"", const WyString& pkName = L"") {
    MIForeignKey record;
    record.pkCatalog_ = record.fkCatalog_ = from.catalog;
    record.pkSchema_ = record.fkSchema_ = from.schema;
    record.pkTable_ = pkTable;
    record.fkTable_ = from.table;
    record.fkColumnName_ = fkColumn;
    record.keySequence_ = 1;
    record.foreignKeyName_ = name;
    record.primaryKeyName_ = pkName;
    return record;
}
