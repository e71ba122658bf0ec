// The driver-independent rules of the ODBC source: type mapping and connection-string texts.
// Kept apart from the ODBC calls so that they can be checked without a data source.
#include "import/odbc/OdbcRules.h"

#include "platform/BaseStringUtil.h"
#include "platform/ErrorMessage.h"

#include <algorithm>
#include <cwctype>

namespace {

// A letter or digit, as far as the "unsigned" word boundary is concerned. Beyond ASCII, a
// character counts as a letter when it has a case mapping; type names hardly ever go there.
bool IsWordCharacter(wchar_t c) {
    if ((c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9')) {
        return true;
    }
    return c > 0x7F && (BaseStringUtil::ToLower(c) != c || BaseStringUtil::ToUpper(c) != c);
}

bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t';
}

} // namespace

bool TypeNameSaysUnsigned(const WyString& typeName) {
    static const WyString kWord = L"unsigned";
    const WyString lower = BaseStringUtil::ToLowerCase(typeName);
    for (size_t at = lower.find(kWord); at != WyString::npos; at = lower.find(kWord, at + 1)) {
        const size_t end = at + kWord.size();
        const bool freeBefore = at == 0 || !IsWordCharacter(lower[at - 1]);
        const bool freeAfter = end == lower.size() || !IsWordCharacter(lower[end]);
        if (freeBefore && freeAfter) {
            return true;
        }
    }
    return false;
}

WyDataType MapOdbcDataType(int dataType, const WyString& typeName) {
    switch (dataType) {
    case 1:   // SQL_CHAR
    case -8:  // SQL_WCHAR
    case -11: // SQL_GUID
        return WyCharData;
    case 12: // SQL_VARCHAR
    case -9: // SQL_WVARCHAR
        return WyVarCharData;
    case -1:  // SQL_LONGVARCHAR
    case -10: // SQL_WLONGVARCHAR
        return WyLongVarCharData;
    case -2: // SQL_BINARY
        return WyBinaryData;
    case -3: // SQL_VARBINARY
        return WyVarBinaryData;
    case -4: // SQL_LONGVARBINARY
        return WyLongVarBinaryData;
    case -7: // SQL_BIT
        return WyBitData;
    case -6: // SQL_TINYINT
        return TypeNameSaysUnsigned(typeName) ? WyUInt1Data : WyInt1Data;
    case 5: // SQL_SMALLINT
        return TypeNameSaysUnsigned(typeName) ? WyUInt2Data : WyInt2Data;
    case 4: // SQL_INTEGER
        return TypeNameSaysUnsigned(typeName) ? WyUInt4Data : WyInt4Data;
    case -5: // SQL_BIGINT: no 8-byte integer type on the server side
    case 2:  // SQL_NUMERIC
        return WyNumericData;
    case 3: // SQL_DECIMAL
        return WyDecimalData;
    case 7: // SQL_REAL
        return WyFloatData;
    case 6: // SQL_FLOAT
    case 8: // SQL_DOUBLE
        return WyDoubleData;
    case 91: // SQL_TYPE_DATE
    case 9:  // SQL_DATE (ODBC 2)
        return WyDateData;
    case 92: // SQL_TYPE_TIME
    case 10: // SQL_TIME (ODBC 2)
        return WyTimeData;
    case 93: // SQL_TYPE_TIMESTAMP
    case 11: // SQL_TIMESTAMP (ODBC 2)
        return WyTimeStampData;
    default:
        if (dataType >= 101 && dataType <= 113) { // SQL_INTERVAL_YEAR .. SQL_INTERVAL_MINUTE_TO_SECOND
            return WyIntervalData;
        }
        return WyUnknown;
    }
}

WyString QuoteConnectionValue(const WyString& value) {
    bool needsBraces = false;
    for (wchar_t c : value) {
        if (c == L';' || c == L'{' || c == L'}' || IsBlank(c)) {
            needsBraces = true;
            break;
        }
    }
    if (!needsBraces) {
        return value;
    }
    WyString quoted = L"{";
    for (wchar_t c : value) {
        quoted += c;
        if (c == L'}') {
            quoted += L'}';
        }
    }
    quoted += L'}';
    return quoted;
}

namespace {

// Whether the connection string names psqlODBC as its driver (a library path or a driver name).
bool NamesPsqlOdbc(const WyString& source) {
    WyString lower;
    for (wchar_t c : source)
        lower += static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    for (size_t at = lower.find(L"driver"); at != WyString::npos; at = lower.find(L"driver", at + 1)) {
        const bool startsAttribute = at == 0 || lower[at - 1] == L';' || IsBlank(lower[at - 1]);
        size_t equals = at + 6;
        while (equals < lower.size() && IsBlank(lower[equals]))
            ++equals;
        if (!startsAttribute || equals >= lower.size() || lower[equals] != L'=')
            continue;
        const WyString value = lower.substr(equals + 1, lower.find(L';', equals) - equals - 1);
        return value.find(L"psqlodbc") != WyString::npos || value.find(L"postgres") != WyString::npos;
    }
    return false;
}

// psqlODBC (13) takes a UID value as it stands, braces included, up to the next ";": a user
// name goes unquoted, and one that holds ";" or begins with "{" cannot be given at all.
WyString PsqlOdbcUser(const WyString& user) {
    const wchar_t* problem = user.find(L';') != WyString::npos ? L"holds \";\""
                             : user.front() == L'{'            ? L"begins with \"{\""
                                                               : nullptr;
    if (problem != nullptr) {
        throw ErrorMessage(L"the user name " + WyString(problem) +
                           L", which psqlODBC cannot take in a connection string (it ends the value at "
                           L"\";\" and keeps braces as part of the name): connect through a data source "
                           L"name (--connect DSN), which hands the user name to the driver as it is");
    }
    return user;
}

} // namespace

WyString AppendCredentials(const WyString& source, const WyString& user, const WyString& password) {
    WyString connection = source;
    const bool psqlOdbc = NamesPsqlOdbc(source);
    auto append = [&connection](const wchar_t* key, const WyString& value) {
        // A trailing ";" already separates; doubling it would hand the driver an empty attribute.
        if (!connection.empty() && connection.back() != L';') {
            connection += L';';
        }
        connection += key;
        connection += L'=';
        connection += QuoteConnectionValue(value);
    };
    if (!user.empty()) {
        if (psqlOdbc) {
            if (!connection.empty() && connection.back() != L';')
                connection += L';';
            connection += L"UID=" + PsqlOdbcUser(user);
        } else {
            append(L"UID", user);
        }
    }
    if (!password.empty()) {
        append(L"PWD", password);
    }
    return connection;
}

WyString HidePasswords(const WyString& connection) {
    WyString out;
    size_t at = 0;
    while (at < connection.size()) {
        // One attribute: the key up to "=", then the value up to the next ";" outside braces.
        const size_t equals = connection.find(L'=', at);
        const size_t semicolon = connection.find(L';', at);
        if (equals == WyString::npos || (semicolon != WyString::npos && semicolon < equals)) {
            const size_t end = semicolon == WyString::npos ? connection.size() : semicolon + 1;
            out.append(connection, at, end - at);
            at = end;
            continue;
        }
        size_t end = equals + 1;
        while (end < connection.size() && IsBlank(connection[end])) {
            ++end;
        }
        if (end < connection.size() && connection[end] == L'{') {
            // "}}" inside braces stands for one "}"; a single "}" closes the value.
            ++end;
            while (end < connection.size()) {
                if (connection[end] == L'}') {
                    if (end + 1 < connection.size() && connection[end + 1] == L'}') {
                        end += 2;
                        continue;
                    }
                    ++end;
                    break;
                }
                ++end;
            }
        }
        const size_t valueEnd = std::min(connection.find(L';', end), connection.size());
        WyString key = connection.substr(at, equals - at);
        while (!key.empty() && IsBlank(key.back())) {
            key.pop_back();
        }
        while (!key.empty() && IsBlank(key.front())) {
            key.erase(0, 1);
        }
        out.append(connection, at, equals + 1 - at);
        if (BaseStringUtil::IsCaseInsensitiveMatch(key, L"PWD") ||
            BaseStringUtil::IsCaseInsensitiveMatch(key, L"PASSWORD")) {
            out += L"***";
        } else {
            out.append(connection, equals + 1, valueEnd - (equals + 1));
        }
        at = valueEnd;
        if (at < connection.size()) {
            out += L';';
            ++at;
        }
    }
    return out;
}
