// The records in which import sources hand over metadata, one row at a time. The first fields of
// MITable, MIColumn, MIPrimaryKey and MIForeignKey follow the result sets of SQLTables, SQLColumns,
// SQLPrimaryKeys and SQLForeignKeys; later fields are extensions of the import gateway.
#pragma once

#include "platform/WyString.h"
#include "platform/repository/SMPTypeIDDatabase.h"

#include <cstdint>
#include <vector>

using uint8 = uint8_t;
using uint16 = uint16_t;
using uint32 = uint32_t;

/// Call-interface types: they choose the import driver.
struct ServerInfo {
    enum CLIType : int32_t {
        kCLI_ODBC350 = 3,
        kCLI_ZEL_HTTP = 18,
        kCLI_WS = 19,
    };
};
using CLIType = ServerInfo::CLIType;

/// Kind of target a source reports through GetFeatures.
enum TargetType : int32_t {
    kTargetDefault = 0,
    kZelV2 = 59,
};

/// Server data types.
enum WyDataType : int32_t {
    WyBitData = 0,
    WyCharData = 1,
    WyVarCharData = 2,
    WyLongVarCharData = 3,
    WyBinaryData = 4,
    WyVarBinaryData = 5,
    WyLongVarBinaryData = 6,
    WyInt1Data = 7,
    WyUInt1Data = 8,
    WyInt2Data = 9,
    WyUInt2Data = 10,
    WyInt4Data = 11,
    WyUInt4Data = 12,
    WyFloatData = 13,
    WyDoubleData = 14,
    WyMoneyData = 15,
    WyNumericData = 16,
    WyDecimalData = 17,
    WyDateData = 18,
    WyTimeData = 19,
    WyDateTimeData = 20,
    WyTimeStampData = 21,
    WyIntervalData = 22,
    WyObjectData = 23,
    WyBoolean = 24,
    WyUnknown = 25,
    WyMaxType = 26,
};

/// The name of a data type ("WyVarCharData"), or null for a value outside the enumeration.
const char* WyDataTypeName(WyDataType type);
/// The data type named `name`; false when no type has that name.
bool WyDataTypeFromName(const WyString& name, WyDataType& type);

struct MICatalog {
    MICatalog() = default;
    explicit MICatalog(WyString& catalog) : catalog_(catalog) {}
    bool operator<(const MICatalog& other) const { return catalog_ < other.catalog_; }

    WyString catalog_;
    WyString remarks_;
};

struct MISchema {
    MISchema() = default;
    MISchema(WyString& catalog, WyString& schema) : catalog_(catalog), schema_(schema) {}
    bool operator<(const MISchema& other) const;

    WyString catalog_;
    WyString schema_;
    WyString remarks_;
    WyString wsInputMsg_;
};

struct MITable {
    MITable() = default;
    MITable(WyString& catalog, WyString& schema, WyString& table, WyString& tableType)
        : catalog_(catalog), schema_(schema), table_(table), tableType_(tableType) {}
    bool operator<(const MITable& other) const;

    WyString catalog_;
    WyString schema_;
    WyString table_;
    WyString tableType_;
    WyString remarks_;
    WyString fullyQualifiedName_;
    WyString userName_;
    WyString wsXSLT_;
    WyString wsxsd_;
    WyString effFlexfieldCode_;
    bool isProblematic_ = false;
};

struct MIColumnPickListField {
    WyString fieldName;
    WyString pickFieldName;
};
using MIColumnPickListFieldVector = std::vector<MIColumnPickListField>;

struct MIColumn {
    MIColumn() = default;
    bool operator<(const MIColumn& other) const;

    WyString catalog_;
    WyString schema_;
    WyString table_;
    WyString columnName_;
    WyDataType dataType_ = WyBitData;
    WyString typeName_;
    uint32 precision_ = 0;
    uint32 length_ = 0;
    uint16 scale_ = 0;
    uint16 radix_ = 0;
    uint16 nullable_ = 0;
    WyString remarks_;
    WyString fullyQualifiedName_;
    WyString userName_;
    bool isHidden_ = false;
    WyString effContextName_;
    WyString effColumnProperties_;
    WyString MVLINK_NAME;
    WyString DEST_FLD_NAME;
    WyString picklistName;
    uint16 multiValued = 0;
    WyString field_Id;
    MIColumnPickListFieldVector pickListFieldName;
    bool inputParam_ = false;
};

struct MIPrimaryKey {
    WyString catalog_;
    WyString schema_;
    WyString table_;
    WyString columnName_;
    uint16 keySequence_ = 0;
    WyString primaryKeyName_;
};

struct MIForeignKey {
    WyString pkCatalog_;
    WyString pkSchema_;
    WyString pkTable_;
    WyString pkColumnName_;
    WyString fkCatalog_;
    WyString fkSchema_;
    WyString fkTable_;
    WyString fkColumnName_;
    uint16 keySequence_ = 0;
    uint16 updateRule_ = 0;
    uint16 deleteRule_ = 0;
    WyString foreignKeyName_;
    WyString primaryKeyName_;
};

struct MIViewLink {
    WyString name_;
    WyString source_;
    WyString destination_;
    uint16 cardinality_ = 0;
    WyStringVector sourceColumns_;
    WyStringVector destinationColumns_;
};

using MIColumnVector = std::vector<MIColumn>;
using MIPrimaryKeyVector = std::vector<MIPrimaryKey>;
using MIForeignKeyVector = std::vector<MIForeignKey>;
using MIViewLinkVector = std::vector<MIViewLink>;

/// Records of the import gateway that the generator does not use.
struct MIStatistics {};
struct MISynonym {};
struct MIUserInfo {};
struct MIRoleInfo {};
struct MITablePrivileges {};
struct MIColumnPrivileges {};
struct MIExecutionTimes {};
struct MIAMProperty {};

/// Features a source reports; the generator reads only the target type beside it.
class SUFeaturesTable {
public:
    WyStringStringMap& Features() { return m_features; }

private:
    WyStringStringMap m_features;
};
