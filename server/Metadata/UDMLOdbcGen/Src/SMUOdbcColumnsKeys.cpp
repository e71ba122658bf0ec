// Columns and keys: the column body with its type mapping, the column list and stand-alone column
// statement with the pick-list correction, and the table-key statement. The column list is the
// generator's hot path, so per-column work avoids building strings that go straight to the sink.
#include "SMUOdbcGenerator.h"

#include <cstddef>
#include <unordered_set>

namespace {

// Repository type names. The order is the repository's, not the order of WyDataType: the index
// of a type comes from RepositoryTypeIndex.
const char* const szTypes[] = {
    "BIT",       "CHAR",     "VARCHAR", "LONGVARCHAR", "BINARY",  "VARBINARY", "LONGVARBINARY", "TINYINT",
    "SMALLINT",  "INT",      "UINT",    "FLOAT",       "DOUBLE",  "DATETYPE",  "TIME",          "DATETIME",
    "TIMESTAMP", "INTERVAL", "OBJECT",  "BOOLEAN",     "UNKNOWN", "NUMERIC"};

enum TypeIndex {
    kBit = 0,
    kChar = 1,
    kVarChar = 2,
    kLongVarChar = 3,
    kBinary = 4,
    kVarBinary = 5,
    kLongVarBinary = 6,
    kTinyInt = 7,
    kSmallInt = 8,
    kInt = 9,
    kUInt = 10,
    kFloat = 11,
    kDouble = 12,
    kDateType = 13,
    kTime = 14,
    kDateTime = 15,
    kTimeStamp = 16,
    kInterval = 17,
    kObject = 18,
    kBoolean = 19,
    kUnknown = 20,
    kNumeric = 21,
};
static_assert(sizeof(szTypes) / sizeof(szTypes[0]) == kNumeric + 1, "one name per type index");

// Unsigned 8- and 16-bit integers share their signed forms' names, money has no repository type,
// and exact numerics follow the host's numeric-as-double setting. Values outside the enumeration
// can arrive from a driver or a snapshot file, so the switch has a default.
int RepositoryTypeIndex(WyDataType type, bool numericAsDouble) {
    switch (type) {
    case WyBitData:
        return kBit;
    case WyCharData:
        return kChar;
    case WyVarCharData:
        return kVarChar;
    case WyLongVarCharData:
        return kLongVarChar;
    case WyBinaryData:
        return kBinary;
    case WyVarBinaryData:
        return kVarBinary;
    case WyLongVarBinaryData:
        return kLongVarBinary;
    case WyInt1Data:
    case WyUInt1Data:
        return kTinyInt;
    case WyInt2Data:
    case WyUInt2Data:
        return kSmallInt;
    case WyInt4Data:
        return kInt;
    case WyUInt4Data:
        return kUInt;
    case WyFloatData:
        return kFloat;
    case WyDoubleData:
        return kDouble;
    case WyNumericData:
    case WyDecimalData:
        return numericAsDouble ? kDouble : kNumeric;
    case WyDateData:
        return kDateType;
    case WyTimeData:
        return kTime;
    case WyDateTimeData:
        return kDateTime;
    case WyTimeStampData:
        return kTimeStamp;
    case WyIntervalData:
        return kInterval;
    case WyObjectData:
        return kObject;
    case WyBoolean:
        return kBoolean;
    case WyMoneyData:
    case WyUnknown:
    default:
        return kUnknown;
    }
}

// Decimal text of a number into a caller's buffer: the digits are ASCII, so they travel as an
// 8-bit piece and no wide string is built per number.
const char* DecimalText(unsigned int value, char (&buffer)[16]) {
    char* p = buffer + sizeof buffer;
    *--p = '\0';
    do {
        *--p = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    return p;
}

bool HasNamedPickListField(const MIColumnPickListFieldVector& fields) {
    for (const MIColumnPickListField& field : fields)
        if (!field.fieldName.empty())
            return true;
    return false;
}

bool ContainsIgnoringCase(const WyStringVector& names, const WyString& name) {
    for (const WyString& candidate : names)
        if (BaseStringUtil::CaseInsensitiveCompare(candidate, name) == 0)
            return true;
    return false;
}

// Answers ContainsIgnoringCase for many names against one list. A short list is searched; a long
// one (a key of thousands of columns checked against the table's columns) gets a set of its
// lower-cased names on first use, so the check stays linear in the table's size.
class NameLookup {
public:
    explicit NameLookup(const WyStringVector& names) : m_names(names) {}

    bool Contains(const WyString& name) {
        if (m_names.size() <= kSearchLimit)
            return ContainsIgnoringCase(m_names, name);
        if (m_lowered.empty()) {
            m_lowered.reserve(m_names.size());
            for (const WyString& candidate : m_names)
                m_lowered.insert(BaseStringUtil::ToLowerCase(candidate));
        }
        return m_lowered.count(BaseStringUtil::ToLowerCase(name)) != 0;
    }

private:
    static constexpr size_t kSearchLimit = 32;
    const WyStringVector& m_names;
    std::unordered_set<WyString> m_lowered;
};

// The property map of a column: the hidden mark, the EFF context with its numbered attribute
// category resource ids, and the column's own key/value pairs, later entries replacing earlier.
void BuildColumnProperties(const MIColumn& column, WyStringStringMap& properties) {
    if (column.isHidden_)
        ExternalizationUtil::SetZelIsHiddenProperty(properties, true);
    if (column.effContextName_.empty())
        return;

    const WyString delimiter = L",";
    WyStringVector tokens;
    BaseStringUtil::Tokenize(column.effContextName_, delimiter, tokens, false, false);
    if (!tokens.empty())
        properties[S_EFF_CONTEXT_NAME] = tokens[0];
    for (size_t i = 0; i + 1 < tokens.size(); ++i)
        properties[S_EFF_ATTR_CATEGORY_RESID_PREFIX +
                   BaseStringUtil::StringFrom(static_cast<unsigned int>(i))] = tokens[i + 1];

    if (column.effColumnProperties_.empty())
        return;
    WyStringVector pairs;
    BaseStringUtil::Tokenize(column.effColumnProperties_, delimiter, pairs, false, false);
    // A trailing key without a value is dropped.
    for (size_t i = 0; i + 1 < pairs.size(); i += 2)
        properties[pairs[i]] = pairs[i + 1];
}

} // namespace

void CUdmlGenerator::GenerateColumnInfoUdml(const MIColumn& column) {
    if (m_bAbort)
        return;
    char number[16];

    GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &m_strTable, &column.columnName_,
                          nullptr);
    OutputCString(" AS \"");
    OutputWyString(column.columnName_);
    OutputCString("\"");

    const WyString* externalName = !column.fullyQualifiedName_.empty() ? &column.fullyQualifiedName_
                                   : !column.userName_.empty()         ? &column.userName_
                                                                       : nullptr;
    if (externalName != nullptr) {
        OutputCString(" EXTERNAL ");
        OutputWyString(UDMLWyGenerator::EscapeCurlyBraceInWyString(*externalName));
    }

    // Type names are ASCII, identical in every code page, so the 8-bit piece is the widened name.
    OutputCString(" TYPE ");
    OutputCString(szTypes[RepositoryTypeIndex(column.dataType_,
                                              SUSystemConfig::GetSystemConfig().IsNumericAsDouble())]);
    OutputCString(" PRECISION ");
    OutputCString(DecimalText(column.precision_, number));
    OutputCString(" SCALE ");
    OutputCString(DecimalText(column.scale_, number));
    OutputCString(column.nullable_ == 0 ? " NOT NULLABLE" : " NULLABLE");

    // Only a packaged application's EAI source declares pick lists; the source is asked once per
    // body, and a body may be written without a source when the host handed the record in.
    const bool bPickList = m_pImport != nullptr && m_pImport->GetTavrinEAI() &&
                           !column.picklistName.empty() && HasNamedPickListField(column.pickListFieldName);

    OutputCString(" VALUE TYPE ");
    if (column.multiValued == 1)
        OutputCString(" MANY TO MANY ");
    else if (bPickList)
        OutputCString(" MANY TO ONE ");

    // The mapped column is looked up even without a pick list: a source outside EAI mode may still
    // deliver the field that maps the column.
    OutputCString(" MAPPED COLUMN '");
    if (column.multiValued == 1) {
        OutputWyString(column.DEST_FLD_NAME);
    } else {
        for (const MIColumnPickListField& field : column.pickListFieldName) {
            if (BaseStringUtil::IsMatch(field.fieldName, column.columnName_)) {
                OutputWyString(field.pickFieldName);
                break;
            }
        }
    }
    OutputCString("' ");

    OutputCString(" MVLINK '");
    OutputWyString(column.MVLINK_NAME);
    OutputCString("' ");

    if (bPickList) {
        OutputCString("\n PICKLIST (");
        if (!column.pickListFieldName.empty()) {
            OutputCString("\n");
            bool first = true;
            for (const MIColumnPickListField& field : column.pickListFieldName) {
                if (!first)
                    OutputCString(",\n");
                first = false;
                GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &m_strTable,
                                      &field.fieldName, nullptr);
            }
        }
        OutputCString(" ) ");
    }

    if (column.inputParam_)
        OutputCString(" INPUTPARAM ");

    if (column.isHidden_ || !column.effContextName_.empty()) {
        WyStringStringMap propertyMap;
        BuildColumnProperties(column, propertyMap);
        WyString clause;
        OutputWyString(UDMLWyGenerator::GenerateTblOrColumnProperties(propertyMap, clause));
    }

    OutputCString(" DESCRIPTION ");
    OutputWyString(UDMLWyGenerator::EscapeCurlyBraceInWyString(column.remarks_));
}

void CUdmlGenerator::GenerateTableColumnUdml(MIColumnVector* pColumns) {
    if (m_bAbort)
        return;
    // The check list is refilled in place, so its strings keep their room from table to table;
    // whatever way the list ends, it then holds exactly the names fetched.
    struct CheckListEnd {
        WyStringVector& names;
        size_t count = 0;
        ~CheckListEnd() { names.resize(count); }
    } checked{m_checkColumnVector};

    // A synonym's columns are those of its base table, declared under the synonym's name.
    WyString strTable = m_strBaseTable.empty() ? m_strTable : m_strBaseTable;
    WyString strAll = L"%";

    // The whole list is fetched before any column is written: the pick-list correction of each
    // column needs the names of all columns of the table.
    if (m_pImport == nullptr)
        return;
    try {
        m_pImport->PrepareForColumn(m_strCatalog, m_strSchema, strTable, strAll);
        // Each record is read straight into its place in the list, and the list's records are
        // reused from table to table: a source fills the whole record on every Get.
        MIColumnVector& columnVector = m_tableColumnScratch;
        size_t columnCount = 0;
        while (!m_bAbort) {
            if (columnCount == columnVector.size())
                columnVector.emplace_back();
            if (!m_pImport->Get(columnVector[columnCount]))
                break;
            const MIColumn& column = columnVector[columnCount++];
            if (checked.count < m_checkColumnVector.size())
                m_checkColumnVector[checked.count] = column.columnName_;
            else
                m_checkColumnVector.push_back(column.columnName_);
            ++checked.count;
            if (pColumns != nullptr) {
                pColumns->push_back(column);
                pColumns->back().table_ = strTable;
            }
        }
        m_checkColumnVector.resize(checked.count);
        if (columnCount == 0)
            return;

        const WyString noPickList = L"NULL";
        bool first = true;
        for (size_t index = 0; index < columnCount; ++index) {
            MIColumn& current = columnVector[index];
            if (m_pImport->GetTavrinEAI() && !current.picklistName.empty() &&
                !BaseStringUtil::IsMatch(current.picklistName, noPickList))
                m_pImport->GetPickList(current);
            OutputCString(first ? "\n HAVING( " : ", ");
            first = false;
            OutputCString("\n    ");
            correctPickList(current, m_checkColumnVector);
            GenerateColumnInfoUdml(current);
        }
        OutputCString("\n )");
    } catch (ErrorMessage&) {
        // The table statement goes on without the rest of its list; what was written stays.
    }
}

void CUdmlGenerator::GenerateColumnUdml() {
    if (m_bAbort || (m_fGenerate & 0x0010) == 0)
        return;

    try {
        MIColumn record;
        if (m_bUseExistingStructs) {
            record = m_importedMIColumn;
        } else {
            if (m_pImport == nullptr)
                return;
            WyString strTable = m_strBaseTable.empty() ? m_strTable : m_strBaseTable;
            const WyString tableKey = m_strCatalog + m_strSchema + strTable;
            auto cached = m_importedTableColumns.find(tableKey);
            if (cached == m_importedTableColumns.end()) {
                // A host that asks for a table's columns one by one costs one fetch per table: the
                // first request reads them all. A failed fetch leaves no partial entry behind.
                WyString strBlank;
                m_pImport->PrepareForColumn(m_strCatalog, m_strSchema, strTable, strBlank);
                std::map<WyString, MIColumn> curTableColumns;
                MIColumn column;
                while (m_pImport->Get(column))
                    curTableColumns[column.columnName_] = column;
                cached = m_importedTableColumns.emplace(tableKey, std::move(curTableColumns)).first;
            }
            // A column the source does not know is remembered as a default record.
            record = cached->second[m_strColumn];
        }

        OutputCString("\nDECLARE COLUMN ");
        m_checkColumnVector.push_back(record.columnName_);
        correctPickList(record, m_checkColumnVector);
        GenerateColumnInfoUdml(record);
        OutputCString(";\n");
    } catch (ErrorMessage&) {
        // Nothing is recorded: the statement stops where it stands.
    }
}

void CUdmlGenerator::correctPickList(MIColumn& column, const WyStringVector& columnVector) {
    if (columnVector.empty())
        return;
    // Kept entries stay in order and unchanged; compacting in place equals building the list anew.
    MIColumnPickListFieldVector& fields = column.pickListFieldName;
    size_t kept = 0;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (!ContainsIgnoringCase(columnVector, fields[i].fieldName))
            continue;
        if (kept != i)
            fields[kept] = std::move(fields[i]);
        ++kept;
    }
    fields.erase(fields.begin() + static_cast<std::ptrdiff_t>(kept), fields.end());
}

void CUdmlGenerator::GenerateTableKeyUdml(MIPrimaryKeyVector* pKeys) {
    if (m_bAbort || (m_fGenerate & 0x0040) == 0)
        return;

    WyString strTable = m_strBaseTable.empty() ? m_strTable : m_strBaseTable;
    const bool bExisting = m_bUseExistingStructs;
    MIPrimaryKey primaryKey;
    WyString workingKeyName;
    bool bOpen = false;
    size_t keyIndex = 0;
    NameLookup declaredColumns(m_checkColumnVector);

    // Writes the head of a statement for the current record's key name.
    auto openStatement = [&]() {
        workingKeyName = primaryKey.primaryKeyName_;
        bOpen = true;
        OutputCString("\nDECLARE TABLE KEY ");
        GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &m_strTable, &workingKeyName,
                              nullptr);
        OutputCString(" AS \"");
        OutputWyString(workingKeyName);
        OutputCString("\"\n HAVING ( ");
    };

    try {
        if (bExisting) {
            if (m_importedMITablePrimaryKeys.empty())
                return;
        } else {
            if (m_pImport == nullptr)
                return;
            m_pImport->PrepareForPrimaryKey(m_strCatalog, m_strSchema, strTable);
            if (m_bAbort || !m_pImport->Get(primaryKey))
                return;
        }

        for (;;) {
            if (bExisting)
                primaryKey = m_importedMITablePrimaryKeys[keyIndex];
            // The default name follows the declared table, not the table the key was read from.
            if (primaryKey.primaryKeyName_.empty())
                primaryKey.primaryKeyName_ = L"PK_" + m_strTable;

            // Key columns are checked against the columns just declared for the table; handed-in
            // keys are trusted as they are.
            if (bExisting || declaredColumns.Contains(primaryKey.columnName_)) {
                if (!bOpen) {
                    openStatement();
                } else if (BaseStringUtil::IsMatch(primaryKey.primaryKeyName_, workingKeyName)) {
                    OutputCString(",\n");
                } else {
                    OutputCString(" );\n");
                    openStatement();
                }
                GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &m_strTable,
                                      &primaryKey.columnName_, nullptr);
            }

            if (pKeys != nullptr) {
                primaryKey.table_ = m_strTable;
                pKeys->push_back(primaryKey);
            }

            if (m_bAbort)
                break;
            if (bExisting) {
                if (++keyIndex >= m_importedMITablePrimaryKeys.size())
                    break;
            } else if (!m_pImport->Get(primaryKey)) {
                break;
            }
        }
        if (bOpen)
            OutputCString(" );\n");
    } catch (ErrorMessage&) {
        // An open statement stays without its end; the caller's walk goes on.
    }
}

void CUdmlGenerator::SetMIColumn(const MIColumn& column) {
    m_bUseExistingStructs = true;
    m_importedMIColumn = column;
}

void CUdmlGenerator::SetMITableKeys(const MIPrimaryKeyVector& keyVec) {
    m_bUseExistingStructs = true;
    m_importedMITablePrimaryKeys = keyVec;
}

bool CUdmlGenerator::GeneratePrimaryKey(const WyString& strCatalog, const WyString& strSchema,
                                        const WyString& strTable, const WyString& strBaseTable) {
    if (m_bAbort || m_pImport == nullptr)
        return false;
    m_nDepth = 0;
    m_nDepthLimit = -1;
    m_fGenerate = 0x0040;
    try {
        m_strCatalog = strCatalog;
        m_strSchema = strSchema;
        m_strTable = strTable;
        m_strBaseTable = strBaseTable;
        m_strColumn.clear();
        GenerateTableKeyUdml(nullptr);
        return true;
    } catch (...) {
        return false;
    }
}
