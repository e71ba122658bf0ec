// Data-type names and the orderings of the import records. The ordering is lexicographic over the
// name fields, from the outermost container inward, so that sorted records group by table.
#include "import/MIRecords.h"

#include <iterator>
#include <tuple>

namespace {

// Indexed by the enumerator's value; the names are the enumerators' own spellings.
const char* const kDataTypeNames[] = {
    "WyBitData",       "WyCharData",          "WyVarCharData",  "WyLongVarCharData", "WyBinaryData",
    "WyVarBinaryData", "WyLongVarBinaryData", "WyInt1Data",     "WyUInt1Data",       "WyInt2Data",
    "WyUInt2Data",     "WyInt4Data",          "WyUInt4Data",    "WyFloatData",       "WyDoubleData",
    "WyMoneyData",     "WyNumericData",       "WyDecimalData",  "WyDateData",        "WyTimeData",
    "WyDateTimeData",  "WyTimeStampData",     "WyIntervalData", "WyObjectData",      "WyBoolean",
    "WyUnknown",       "WyMaxType",
};
static_assert(std::size(kDataTypeNames) == WyMaxType + 1, "one name per data type");

} // namespace

const char* WyDataTypeName(WyDataType type) {
    const int32_t value = static_cast<int32_t>(type);
    if (value < 0 || value > WyMaxType)
        return nullptr;
    return kDataTypeNames[value];
}

bool WyDataTypeFromName(const WyString& name, WyDataType& type) {
    for (int32_t value = 0; value <= WyMaxType; ++value) {
        const char* candidate = kDataTypeNames[value];
        size_t pos = 0;
        while (candidate[pos] != '\0' && pos < name.size() &&
               name[pos] == static_cast<wchar_t>(static_cast<unsigned char>(candidate[pos])))
            ++pos;
        if (candidate[pos] == '\0' && pos == name.size()) {
            type = static_cast<WyDataType>(value);
            return true;
        }
    }
    return false;
}

bool MISchema::operator<(const MISchema& other) const {
    return std::tie(catalog_, schema_) < std::tie(other.catalog_, other.schema_);
}

bool MITable::operator<(const MITable& other) const {
    return std::tie(catalog_, schema_, table_) < std::tie(other.catalog_, other.schema_, other.table_);
}

bool MIColumn::operator<(const MIColumn& other) const {
    return std::tie(catalog_, schema_, table_, columnName_) <
           std::tie(other.catalog_, other.schema_, other.table_, other.columnName_);
}
