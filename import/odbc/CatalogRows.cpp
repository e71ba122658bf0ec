// The readers of the catalog functions' result rows.
#include "import/odbc/CatalogRows.h"

#include "import/odbc/OdbcRules.h"

namespace odbc {

MITable TableRow(Row& row) {
    MITable table;
    table.catalog_ = row.Text(1);
    table.schema_ = row.Text(2);
    table.table_ = row.Text(3);
    table.tableType_ = row.Text(4);
    table.remarks_ = row.Text(5);
    return table;
}

void ColumnRow(Row& row, TableRef& table, CachedColumn& column, ColumnShape& shape) {
    shape.catalog = row.Text(1);
    table.catalog = shape.catalog;
    table.schema = row.Text(2);
    table.table = row.Text(3);
    column.name = row.Text(4);
    shape.dataType = row.Signed(5);
    shape.typeName = row.Text(6);
    shape.precision = row.Unsigned(7);
    shape.length = row.Unsigned(8);
    shape.scale = row.Small(9);
    shape.radix = row.Small(10);
    shape.nullable = row.Small(11);
    column.remarks = row.Text(12);
}

MIColumn MakeColumn(const TableRef& table, const CachedColumn& cached, const ColumnShape& shape) {
    MIColumn column;
    column.catalog_ = shape.catalog;
    column.schema_ = table.schema;
    column.table_ = table.table;
    column.columnName_ = cached.name;
    column.dataType_ = MapOdbcDataType(shape.dataType, shape.typeName);
    column.typeName_ = shape.typeName;
    column.precision_ = shape.precision;
    column.length_ = shape.length;
    column.scale_ = shape.scale;
    column.radix_ = shape.radix;
    column.nullable_ = shape.nullable;
    column.remarks_ = cached.remarks;
    return column;
}

MIPrimaryKey PrimaryKeyRow(Row& row) {
    MIPrimaryKey key;
    key.catalog_ = row.Text(1);
    key.schema_ = row.Text(2);
    key.table_ = row.Text(3);
    key.columnName_ = row.Text(4);
    key.keySequence_ = row.Small(5);
    key.primaryKeyName_ = row.Text(6);
    return key;
}

MIForeignKey ForeignKeyRow(Row& row) {
    MIForeignKey key;
    key.pkCatalog_ = row.Text(1);
    key.pkSchema_ = row.Text(2);
    key.pkTable_ = row.Text(3);
    key.pkColumnName_ = row.Text(4);
    key.fkCatalog_ = row.Text(5);
    key.fkSchema_ = row.Text(6);
    key.fkTable_ = row.Text(7);
    key.fkColumnName_ = row.Text(8);
    key.keySequence_ = row.Small(9);
    key.updateRule_ = row.Small(10);
    key.deleteRule_ = row.Small(11);
    key.foreignKeyName_ = row.Text(12);
    key.primaryKeyName_ = row.Text(13);
    return key;
}

} // namespace odbc
