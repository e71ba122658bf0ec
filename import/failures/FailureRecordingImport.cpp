// Records the failures of the wrapped source's listings and tells the host when the connection is gone.
#include "import/failures/FailureRecordingImport.h"

#include <cwctype>

namespace {

WyString Path(std::initializer_list<const WyString*> parts) {
    WyString path;
    for (const WyString* part : parts) {
        if (part->empty())
            continue;
        if (!path.empty())
            path += L'.';
        path += L"\"" + *part + L"\"";
    }
    return path;
}

WyString Of(const WyString& path, const wchar_t* whole) {
    return path.empty() ? WyString(whole) : path;
}

// The SQLSTATE that opens a driver diagnostic ("08S01 [0] text"), or nothing.
WyString StateOf(const WyString& message) {
    if (message.size() < 8 || message[5] != L' ' || message[6] != L'[')
        return WyString();
    for (size_t i = 0; i < 5; ++i)
        if (!std::iswalnum(static_cast<wint_t>(message[i])) || message[i] > 0x7f)
            return WyString();
    return message.substr(0, 5);
}

} // namespace

bool FailureRecordingImport::EndsConnection(const std::deque<WyString>& messages) {
    for (const WyString& message : messages) {
        const WyString state = StateOf(message);
        if (state.empty())
            continue;
        // 57P01-57P03: PostgreSQL ended the session (administrator, crash, shutdown); HYT00/HYT01:
        // the query or connection timed out; HY008: the call was cancelled.
        if (state.compare(0, 2, L"08") == 0 || state == L"57P01" || state == L"57P02" || state == L"57P03" ||
            state == L"HYT00" || state == L"HYT01" || state == L"HY008")
            return true;
    }
    return false;
}

bool FailureRecordingImport::HasFailures() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_failures.empty();
}

std::vector<FailureRecordingImport::Failure> FailureRecordingImport::Failures() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_failures;
}

void FailureRecordingImport::Record(const WyString& what, const ErrorMessage& error, bool stalled) {
    Failure failure;
    failure.what = what;
    failure.messages.assign(error.Messages().begin(), error.Messages().end());
    failure.connectionLost = EndsConnection(error.Messages()) || stalled;
    if (stalled)
        failure.messages.push_back(L"HYT00 [0] the server gave no answer within the timeout of " +
                                   std::to_wstring(m_stallSeconds) + L" seconds");
    bool reportLost = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_failures.push_back(std::move(failure));
        reportLost = m_failures.back().connectionLost && !m_lostReported;
        m_lostReported = m_lostReported || reportLost;
    }
    if (reportLost && m_onLost)
        m_onLost();
}

template <typename Call>
auto FailureRecordingImport::Watch(const WyString& what, Call call) -> decltype(call()) {
    const auto start = std::chrono::steady_clock::now();
    try {
        return call();
    } catch (const ErrorMessage& error) {
        const bool stalled = m_stallSeconds != 0 &&
                             std::chrono::steady_clock::now() - start >= std::chrono::seconds(m_stallSeconds);
        Record(what, error, stalled);
        throw;
    }
}

void FailureRecordingImport::PrepareForCatalog(WyString& catalog) {
    Prepare(kCatalogs, L"reading the catalogs", [&] { m_source.PrepareForCatalog(catalog); });
}

void FailureRecordingImport::PrepareForSchema(WyString& catalog, WyString& schema) {
    Prepare(kSchemas, L"reading the schemas of " + Of(Path({&catalog}), L"every catalog"),
            [&] { m_source.PrepareForSchema(catalog, schema); });
}

void FailureRecordingImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table,
                                             uint8 tableType) {
    Prepare(kTables, L"reading the tables of " + Of(Path({&catalog, &schema}), L"every schema"),
            [&] { m_source.PrepareForTable(catalog, schema, table, tableType); });
}

void FailureRecordingImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table,
                                              WyString& column) {
    Prepare(kColumns, L"reading the columns of " + Of(Path({&catalog, &schema, &table}), L"every table"),
            [&] { m_source.PrepareForColumn(catalog, schema, table, column); });
}

void FailureRecordingImport::PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) {
    Prepare(kPrimaryKeys,
            L"reading the primary key of " + Of(Path({&catalog, &schema, &table}), L"every table"),
            [&] { m_source.PrepareForPrimaryKey(catalog, schema, table); });
}

void FailureRecordingImport::PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                                  WyString& fkCatalog, WyString& fkSchema,
                                                  WyString& fkTable) {
    const WyString from = Path({&fkCatalog, &fkSchema, &fkTable});
    const WyString to = Path({&pkCatalog, &pkSchema, &pkTable});
    Prepare(
        kForeignKeys,
        L"reading the foreign keys" + (from.empty() ? WyString() : L" of " + from) +
            (to.empty() ? WyString() : L" that refer to " + to),
        [&] { m_source.PrepareForForeignKey(pkCatalog, pkSchema, pkTable, fkCatalog, fkSchema, fkTable); });
}

void FailureRecordingImport::PrepareForStatistics(WyString& catalog, WyString& schema, WyString& table,
                                                  IndexType index, FrequencyAccuracy accuracy) {
    Prepare(kOther, L"reading the statistics of " + Path({&catalog, &schema, &table}),
            [&] { m_source.PrepareForStatistics(catalog, schema, table, index, accuracy); });
}

void FailureRecordingImport::PrepareForWSInputParametersUpdate(WyString& a, WyString& b, WyString& c,
                                                               WyString& d, WyString& e) {
    Prepare(kOther, L"updating the web-service input parameters",
            [&] { m_source.PrepareForWSInputParametersUpdate(a, b, c, d, e); });
}

void FailureRecordingImport::PrepareForAllSynonyms() {
    Prepare(kOther, L"reading the synonyms", [&] { m_source.PrepareForAllSynonyms(); });
}

void FailureRecordingImport::PrepareForUserInfo() {
    Prepare(kOther, L"reading the users", [&] { m_source.PrepareForUserInfo(); });
}

void FailureRecordingImport::PrepareForRoleInfo() {
    Prepare(kOther, L"reading the roles", [&] { m_source.PrepareForRoleInfo(); });
}

void FailureRecordingImport::PrepareForTablePrivileges(const WyString& catalog, const WyString& schema,
                                                       const WyString& table) {
    Prepare(kOther, L"reading the privileges of " + Path({&catalog, &schema, &table}),
            [&] { m_source.PrepareForTablePrivileges(catalog, schema, table); });
}

void FailureRecordingImport::PrepareForColumnPrivileges(const WyString& catalog, const WyString& schema,
                                                        const WyString& table, const WyString& column) {
    Prepare(kOther, L"reading the privileges of " + Path({&catalog, &schema, &table, &column}),
            [&] { m_source.PrepareForColumnPrivileges(catalog, schema, table, column); });
}

void FailureRecordingImport::PrepareForExecutionTimes(WyString text) {
    Prepare(kOther, L"reading the execution times", [&] { m_source.PrepareForExecutionTimes(text); });
}

void FailureRecordingImport::GetPickList(MIColumn& column) {
    Watch(L"reading the pick list " + Path({&column.picklistName}) + L" of the column " +
              Path({&column.columnName_}),
          [&] { m_source.GetPickList(column); });
}

void FailureRecordingImport::PrepareForViewLink() {
    Prepare(kOther, L"reading the view links", [&] { m_source.PrepareForViewLink(); });
}

void FailureRecordingImport::PrepareForAMProperties() {
    Prepare(kOther, L"reading the application-module properties", [&] { m_source.PrepareForAMProperties(); });
}

bool FailureRecordingImport::Get(MICatalog& record) {
    return Fetch(kCatalogs, record);
}
bool FailureRecordingImport::Get(MISchema& record) {
    return Fetch(kSchemas, record);
}
bool FailureRecordingImport::Get(MITable& record) {
    return Fetch(kTables, record);
}
bool FailureRecordingImport::Get(MIColumn& record) {
    return Fetch(kColumns, record);
}
bool FailureRecordingImport::Get(MIPrimaryKey& record) {
    return Fetch(kPrimaryKeys, record);
}
bool FailureRecordingImport::Get(MIForeignKey& record) {
    return Fetch(kForeignKeys, record);
}
bool FailureRecordingImport::Get(MIStatistics& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MISynonym& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MIUserInfo& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MIRoleInfo& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MITablePrivileges& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MIColumnPrivileges& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MIExecutionTimes& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MIViewLink& record) {
    return Fetch(kOther, record);
}
bool FailureRecordingImport::Get(MIAMProperty& record) {
    return Fetch(kOther, record);
}
