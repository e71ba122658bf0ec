// The per-DBMS type tables. Each row names the database's own type, what the source writes for it,
// and how precision and scale are found; the reasons are in docs/type-mapping.md, which shows the
// same rows with what the drivers report (psqlODBC 13, MariaDB Connector/ODBC 3.1, SQLite3 ODBC
// 0.9998).
#include "import/odbc/NativeTypes.h"

#include "platform/BaseStringUtil.h"

#include <cwctype>
#include <limits>

namespace odbc {

namespace {

// Where a refined precision or scale comes from.
enum class From {
    Driver,     // what the driver reported (COLUMN_SIZE, or DECIMAL_DIGITS for the scale)
    Value,      // the row's fixed value
    First,      // the type's first declared argument, else the row's value
    Second,     // the type's second declared argument, else the row's value
    Fraction,   // a time type's fraction digits: 0 when not declared (MariaDB)
    PgFraction, // a time type's fraction digits from PostgreSQL's type modifier, 6 when none
    TimeWidth,  // `value` characters, plus a point and the fraction digits when there are any
};

struct TypeRule {
    const wchar_t* name;
    WyDataType type;
    From precisionFrom;
    uint32 precision;
    From scaleFrom;
    uint16 scale;
    bool onlyDeclaredWithArguments = false; // without them, the driver's report stands
};

// Longest values of the unbounded types: PostgreSQL's largest field (1 GB), MariaDB's LONGTEXT and
// LONGBLOB (4 GB - 1), SQLite's default SQLITE_MAX_LENGTH.
constexpr uint32 kPgUnbounded = 1073741823;
constexpr uint32 kMariaDbLong = std::numeric_limits<uint32>::max();
constexpr uint32 kSqliteUnbounded = 1000000000;

// PostgreSQL, by the base type of a domain and with generic names for kinds of types ("array",
// "enum", "range", "composite"; "text" also for varchar and char without a length).
const TypeRule kPostgres[] = {
    {L"bool", WyBoolean, From::Value, 1, From::Value, 0},
    {L"text", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"json", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"jsonb", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"xml", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"tsvector", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"tsquery", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"array", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"range", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"composite", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"point", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"line", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"lseg", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"box", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"path", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"polygon", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"circle", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0},
    {L"enum", WyLongVarCharData, From::Value, 63, From::Value, 0},
    {L"varchar", WyVarCharData, From::Driver, 0, From::Value, 0},
    {L"uuid", WyCharData, From::Value, 36, From::Value, 0},
    {L"timetz", WyTimeData, From::Value, 8, From::PgFraction, 0},
    {L"interval", WyIntervalData, From::Driver, 0, From::PgFraction, 0},
    {L"bytea", WyLongVarBinaryData, From::Value, kPgUnbounded, From::Value, 0},
};

// MariaDB and MySQL, by information_schema's COLUMN_TYPE.
const TypeRule kMariaDb[] = {
    {L"tinyint(1)", WyBoolean, From::Value, 1, From::Value, 0},
    {L"bit(1)", WyBoolean, From::Value, 1, From::Value, 0},
    {L"bit", WyBitData, From::First, 1, From::Value, 0},
    {L"uuid", WyCharData, From::Value, 36, From::Value, 0},
    {L"inet6", WyVarCharData, From::Value, 45, From::Value, 0},
    {L"inet4", WyVarCharData, From::Value, 15, From::Value, 0},
    {L"datetime", WyTimeStampData, From::TimeWidth, 19, From::Fraction, 0},
    {L"timestamp", WyTimeStampData, From::TimeWidth, 19, From::Fraction, 0},
    {L"time", WyTimeData, From::TimeWidth, 8, From::Fraction, 0},
    {L"longtext", WyLongVarCharData, From::Value, kMariaDbLong, From::Value, 0},
    {L"json", WyLongVarCharData, From::Value, kMariaDbLong, From::Value, 0},
    {L"longblob", WyLongVarBinaryData, From::Value, kMariaDbLong, From::Value, 0},
};

// SQLite, by the declared type name; the driver reports DECIMAL_DIGITS 10 for every column, so
// every other SQLite column gets scale 0.
const TypeRule kSqlite[] = {
    {L"decimal", WyDecimalData, From::First, 0, From::Second, 0, true},
    {L"numeric", WyNumericData, From::First, 0, From::Second, 0, true},
    {L"char", WyCharData, From::First, 1, From::Value, 0},
    {L"character", WyCharData, From::First, 1, From::Value, 0},
    {L"nchar", WyCharData, From::First, 1, From::Value, 0},
    {L"boolean", WyBoolean, From::Value, 1, From::Value, 0},
    {L"bool", WyBoolean, From::Value, 1, From::Value, 0},
    {L"int", WyInt4Data, From::Value, 10, From::Value, 0},
    {L"integer", WyInt4Data, From::Value, 10, From::Value, 0},
    {L"real", WyDoubleData, From::Value, 15, From::Value, 0},
    {L"double", WyDoubleData, From::Value, 15, From::Value, 0},
    {L"float", WyDoubleData, From::Value, 15, From::Value, 0},
    {L"text", WyLongVarCharData, From::Value, kSqliteUnbounded, From::Value, 0},
    {L"clob", WyLongVarCharData, From::Value, kSqliteUnbounded, From::Value, 0},
    {L"json", WyLongVarCharData, From::Value, kSqliteUnbounded, From::Value, 0},
    {L"", WyLongVarCharData, From::Value, kSqliteUnbounded, From::Value, 0},
    {L"blob sub_type text", WyLongVarCharData, From::Value, kSqliteUnbounded, From::Value, 0},
    {L"blob", WyLongVarBinaryData, From::Value, kSqliteUnbounded, From::Value, 0},
    {L"uuid", WyCharData, From::Value, 36, From::Value, 0},
    {L"date", WyDateData, From::Value, 10, From::Value, 0},
    {L"time", WyTimeData, From::Value, 8, From::Value, 0},
    {L"datetime", WyTimeStampData, From::Value, 19, From::Value, 0},
    {L"timestamp", WyTimeStampData, From::Value, 19, From::Value, 0},
};

template <size_t N> const TypeRule* Find(const TypeRule (&table)[N], const WyString& name) {
    for (const TypeRule& rule : table) {
        if (name == rule.name) {
            return &rule;
        }
    }
    return nullptr;
}

// PostgreSQL keeps a time type's fraction digits in its type modifier (an interval's in the low
// 16 bits, 0xFFFF meaning none declared); without one, microseconds.
int64_t PgFraction(const NativeType& native) {
    if (native.first < 0) {
        return 6;
    }
    const int64_t digits = native.name == L"interval" ? (native.first & 0xFFFF) : native.first;
    return digits == 0xFFFF ? 6 : digits;
}

int64_t Pick(From from, int64_t value, int64_t driver, const NativeType& native) {
    switch (from) {
    case From::Driver:
        return driver;
    case From::Value:
        return value;
    case From::First:
        return native.arguments >= 1 ? native.first : value;
    case From::Second:
        return native.arguments >= 2 ? native.second : value;
    case From::Fraction:
        return native.arguments >= 1 ? native.first : 0;
    case From::PgFraction:
        return PgFraction(native);
    case From::TimeWidth: {
        const int64_t digits = native.arguments >= 1 ? native.first : 0;
        return value + (digits > 0 ? digits + 1 : 0);
    }
    }
    return driver;
}

template <typename T> T Clamp(int64_t value) {
    return static_cast<T>(std::max<int64_t>(0, std::min<int64_t>(value, std::numeric_limits<T>::max())));
}

void Apply(const TypeRule& rule, const NativeType& native, MIColumn& column) {
    column.dataType_ = rule.type;
    column.precision_ = Clamp<uint32>(Pick(rule.precisionFrom, rule.precision, column.precision_, native));
    column.scale_ = Clamp<uint16>(Pick(rule.scaleFrom, rule.scale, column.scale_, native));
}

} // namespace

NativeType ParseNativeType(const WyString& declared) {
    NativeType native;
    size_t at = 0;
    WyString name;
    while (at < declared.size() && declared[at] != L'(') {
        name += static_cast<wchar_t>(std::towlower(static_cast<wint_t>(declared[at])));
        ++at;
    }
    while (!name.empty() && name.back() == L' ') {
        name.pop_back();
    }
    native.name = name;
    if (at == declared.size()) {
        return native;
    }
    int64_t* targets[] = {&native.first, &native.second};
    int64_t value = 0;
    bool digits = false;
    for (++at; at < declared.size() && declared[at] != L')'; ++at) {
        const wchar_t c = declared[at];
        if (c >= L'0' && c <= L'9') {
            value = std::min<int64_t>(value * 10 + (c - L'0'), std::numeric_limits<uint32>::max());
            digits = true;
        } else if (c == L',' && digits && native.arguments < 2) {
            *targets[native.arguments++] = value;
            value = 0;
            digits = false;
        } else if (c != L' ') {
            return NativeType{name, 0, 0, 0}; // not a numeric argument list
        }
    }
    if (digits && native.arguments < 2) {
        *targets[native.arguments++] = value;
    }
    return native;
}

void RefineType(Dbms dbms, const NativeType& native, MIColumn& column) {
    switch (dbms) {
    case Dbms::PostgreSQL:
        if (const TypeRule* rule = Find(kPostgres, native.name)) {
            Apply(*rule, native, column);
        } else if (column.dataType_ == WyVarCharData && column.precision_ == 255 &&
                   native.name != L"bpchar") {
            // psqlODBC reports every type it does not know as VARCHAR 255.
            Apply(TypeRule{L"", WyLongVarCharData, From::Value, kPgUnbounded, From::Value, 0}, native,
                  column);
        }
        return;
    case Dbms::MariaDB: {
        // "bit(1)" and "tinyint(1)" have rows of their own; otherwise the name alone.
        const WyString withArgument =
            native.arguments == 1 ? native.name + L"(" + std::to_wstring(native.first) + L")" : WyString();
        const TypeRule* rule = withArgument.empty() ? nullptr : Find(kMariaDb, withArgument);
        if (rule == nullptr) {
            rule = Find(kMariaDb, native.name);
        }
        if (rule != nullptr) {
            Apply(*rule, native, column);
        }
        return;
    }
    case Dbms::SQLite:
        if (const TypeRule* rule = Find(kSqlite, native.name);
            rule != nullptr && (native.arguments > 0 || !rule->onlyDeclaredWithArguments)) {
            Apply(*rule, native, column);
        } else {
            column.scale_ = 0;
        }
        return;
    case Dbms::Other:
        return;
    }
}

} // namespace odbc
