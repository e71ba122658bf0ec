// Container statements: the walk from database to catalog to schema to table, and the catalog,
// schema and table statements.
#include "SMUOdbcGenerator.h"

void CUdmlGenerator::GenerateDatabaseUdml() {}
void CUdmlGenerator::GenerateCatalogUdml() {}
void CUdmlGenerator::GenCatalogUdmlStatement(const WyString&) {}
void CUdmlGenerator::GenerateSchemaUdml() {}
void CUdmlGenerator::GenerateTableUdml() {}
void CUdmlGenerator::ConstructTableUDML(TableUDML*) {}
void CUdmlGenerator::InitializeTableMetadataMap() {}
void CUdmlGenerator::GenerateTableUdml(WyStringSet&, TableUDMLVector&) {}
