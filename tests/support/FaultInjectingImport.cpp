// The fault-injecting wrapper: every call is logged and counted before it is forwarded, so an
// armed fault fires before the wrapped source moves (a failed fetch consumes no record).
#include "FaultInjectingImport.h"

#include "platform/BaseStringUtil.h"

#include <stdexcept>

std::string Utf8(const WyString& text) {
    return BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
}

FaultInjectingImport::~FaultInjectingImport() {
    if (m_counters)
        ++m_counters->destroyed;
}

std::vector<std::string> FaultInjectingImport::CallsStartingWith(const std::string& prefix) const {
    std::vector<std::string> calls;
    for (const std::string& call : m_calls)
        if (call.compare(0, prefix.size(), prefix) == 0)
            calls.push_back(call);
    return calls;
}

void FaultInjectingImport::FailAt(const std::string& callPrefix, int nth, std::vector<WyString> messages) {
    m_faults.push_back(Fault{callPrefix, nth, std::move(messages), false});
}

void FaultInjectingImport::FailWithOtherAt(const std::string& callPrefix, int nth) {
    m_faults.push_back(Fault{callPrefix, nth, {}, true});
}

void FaultInjectingImport::Enter(const std::string& name, const std::vector<WyString>& args) {
    std::string call = name;
    if (name.back() != ')') {
        call += '(';
        for (size_t i = 0; i < args.size(); ++i) {
            if (i > 0)
                call += ',';
            BaseStringUtil::AppendUtf8(args[i], call);
        }
        call += ')';
    }
    m_calls.push_back(call);
    for (Fault& fault : m_faults) {
        if (fault.remaining <= 0 || call.compare(0, fault.prefix.size(), fault.prefix) != 0)
            continue;
        if (--fault.remaining > 0)
            continue;
        m_fired = true;
        if (fault.otherException)
            throw std::runtime_error("injected exception at " + call);
        ErrorMessage error;
        for (const WyString& message : fault.messages)
            error.AddMessage(message);
        throw error;
    }
}

namespace {
WyString Number(int value) {
    return BaseStringUtil::StringFrom(value);
}
} // namespace

void FaultInjectingImport::OpenConnection(WyString& source, WyString& user, WyString& password, bool flag) {
    Enter("OpenConnection", {source, user});
    if (m_counters)
        ++m_counters->opened;
    if (!m_openFailure.empty())
        throw ErrorMessage(m_openFailure);
    m_inner.OpenConnection(source, user, password, flag);
}
void FaultInjectingImport::CloseConnection() {
    Enter("CloseConnection");
    if (m_counters)
        ++m_counters->closed;
    m_inner.CloseConnection();
}
void FaultInjectingImport::SetTargetType(TargetType type) {
    Enter("SetTargetType", {Number(type)});
    m_inner.SetTargetType(type);
}
void FaultInjectingImport::GetDefaultCatalog(WyString& catalog) {
    Enter("GetDefaultCatalog");
    m_inner.GetDefaultCatalog(catalog);
}
void FaultInjectingImport::PrepareForCatalog(WyString& catalog) {
    Enter("PrepareForCatalog", {catalog});
    m_inner.PrepareForCatalog(catalog);
}
void FaultInjectingImport::PrepareForSchema(WyString& catalog, WyString& schema) {
    Enter("PrepareForSchema", {catalog, schema});
    m_inner.PrepareForSchema(catalog, schema);
}
void FaultInjectingImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table,
                                           uint8 tableType) {
    Enter("PrepareForTable", {catalog, schema, table, Number(tableType)});
    m_inner.PrepareForTable(catalog, schema, table, tableType);
}
void FaultInjectingImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table,
                                            WyString& column) {
    Enter("PrepareForColumn", {catalog, schema, table, column});
    m_inner.PrepareForColumn(catalog, schema, table, column);
}
void FaultInjectingImport::PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) {
    Enter("PrepareForPrimaryKey", {catalog, schema, table});
    m_inner.PrepareForPrimaryKey(catalog, schema, table);
}
void FaultInjectingImport::PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                                WyString& fkCatalog, WyString& fkSchema, WyString& fkTable) {
    Enter("PrepareForForeignKey", {pkCatalog, pkSchema, pkTable, fkCatalog, fkSchema, fkTable});
    m_inner.PrepareForForeignKey(pkCatalog, pkSchema, pkTable, fkCatalog, fkSchema, fkTable);
}
void FaultInjectingImport::PrepareForStatistics(WyString& catalog, WyString& schema, WyString& table,
                                                IndexType index, FrequencyAccuracy accuracy) {
    Enter("PrepareForStatistics", {catalog, schema, table});
    m_inner.PrepareForStatistics(catalog, schema, table, index, accuracy);
}
void FaultInjectingImport::PrepareForWSInputParametersUpdate(WyString& a, WyString& b, WyString& c,
                                                             WyString& d, WyString& e) {
    Enter("PrepareForWSInputParametersUpdate", {a, b, c, d, e});
    m_inner.PrepareForWSInputParametersUpdate(a, b, c, d, e);
}
bool FaultInjectingImport::Get(MICatalog& record) {
    Enter("Get(MICatalog)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MISchema& record) {
    Enter("Get(MISchema)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MITable& record) {
    Enter("Get(MITable)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIColumn& record) {
    Enter("Get(MIColumn)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIPrimaryKey& record) {
    Enter("Get(MIPrimaryKey)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIForeignKey& record) {
    Enter("Get(MIForeignKey)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIStatistics& record) {
    Enter("Get(MIStatistics)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::GetFeatures(SUFeaturesTable& features, TargetType& targetType) {
    Enter("GetFeatures");
    return m_inner.GetFeatures(features, targetType);
}
bool FaultInjectingImport::Get(MISynonym& record) {
    Enter("Get(MISynonym)");
    return m_inner.Get(record);
}
void FaultInjectingImport::PrepareForAllSynonyms() {
    Enter("PrepareForAllSynonyms");
    m_inner.PrepareForAllSynonyms();
}
void FaultInjectingImport::PrepareForUserInfo() {
    Enter("PrepareForUserInfo");
    m_inner.PrepareForUserInfo();
}
void FaultInjectingImport::PrepareForRoleInfo() {
    Enter("PrepareForRoleInfo");
    m_inner.PrepareForRoleInfo();
}
void FaultInjectingImport::PrepareForTablePrivileges(const WyString& catalog, const WyString& schema,
                                                     const WyString& table) {
    Enter("PrepareForTablePrivileges", {catalog, schema, table});
    m_inner.PrepareForTablePrivileges(catalog, schema, table);
}
void FaultInjectingImport::PrepareForColumnPrivileges(const WyString& catalog, const WyString& schema,
                                                      const WyString& table, const WyString& column) {
    Enter("PrepareForColumnPrivileges", {catalog, schema, table, column});
    m_inner.PrepareForColumnPrivileges(catalog, schema, table, column);
}
void FaultInjectingImport::PrepareForExecutionTimes(WyString text) {
    Enter("PrepareForExecutionTimes", {text});
    m_inner.PrepareForExecutionTimes(text);
}
bool FaultInjectingImport::Get(MIUserInfo& record) {
    Enter("Get(MIUserInfo)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIRoleInfo& record) {
    Enter("Get(MIRoleInfo)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MITablePrivileges& record) {
    Enter("Get(MITablePrivileges)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIColumnPrivileges& record) {
    Enter("Get(MIColumnPrivileges)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIExecutionTimes& record) {
    Enter("Get(MIExecutionTimes)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::GetIsTavrinMetadata() {
    Enter("GetIsTavrinMetadata");
    return m_inner.GetIsTavrinMetadata();
}
WyString FaultInjectingImport::GetAppID() {
    Enter("GetAppID");
    return m_inner.GetAppID();
}
WyString FaultInjectingImport::GetServiceBean() {
    Enter("GetServiceBean");
    return m_inner.GetServiceBean();
}
WyString FaultInjectingImport::GetJavahostServiceName() {
    Enter("GetJavahostServiceName");
    return m_inner.GetJavahostServiceName();
}
WyString FaultInjectingImport::GetHost() {
    Enter("GetHost");
    return m_inner.GetHost();
}
WyString FaultInjectingImport::GetPort() {
    Enter("GetPort");
    return m_inner.GetPort();
}
WyStringPairVector FaultInjectingImport::GetConfigParams() {
    Enter("GetConfigParams");
    return m_inner.GetConfigParams();
}
void FaultInjectingImport::SetConnectParameters(const WyString& a, const WyString& b, const WyString& c,
                                                const WyString& d, const WyString& e, CLIType cliType) {
    Enter("SetConnectParameters", {a, b, c, d, e});
    m_inner.SetConnectParameters(a, b, c, d, e, cliType);
}
void FaultInjectingImport::SetTavrinEAI() {
    Enter("SetTavrinEAI");
    m_inner.SetTavrinEAI();
}
bool FaultInjectingImport::GetTavrinEAI() {
    Enter("GetTavrinEAI");
    return m_inner.GetTavrinEAI();
}
void FaultInjectingImport::GetPickList(MIColumn& column) {
    Enter("GetPickList", {column.columnName_});
    m_inner.GetPickList(column);
}
void FaultInjectingImport::PrepareForViewLink() {
    Enter("PrepareForViewLink");
    m_inner.PrepareForViewLink();
}
void FaultInjectingImport::PrepareForAMProperties() {
    Enter("PrepareForAMProperties");
    m_inner.PrepareForAMProperties();
}
bool FaultInjectingImport::Get(MIViewLink& record) {
    Enter("Get(MIViewLink)");
    return m_inner.Get(record);
}
bool FaultInjectingImport::Get(MIAMProperty& record) {
    Enter("Get(MIAMProperty)");
    return m_inner.Get(record);
}
void FaultInjectingImport::SetConnectParameters(CLIType cliType, WyStringPairVector& params) {
    Enter("SetConnectParameters");
    m_inner.SetConnectParameters(cliType, params);
}
void FaultInjectingImport::GetTargetDBType(TargetType& type) {
    Enter("GetTargetDBType");
    m_inner.GetTargetDBType(type);
}
