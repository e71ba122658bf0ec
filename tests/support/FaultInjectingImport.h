// An import source that wraps another and fails on cue: it forwards every call, counts it, and
// raises ErrorMessage at a chosen call, so tests can break a walk at every point it reads from.
#pragma once

#include "import/MIMetaDataImport.h"

#include <string>
#include <vector>

class FaultInjectingImport : public MIMetaDataImport {
public:
    /// Wraps `inner`, which stays the caller's and must outlive this source.
    explicit FaultInjectingImport(MIMetaDataImport& inner) : m_inner(inner) {}

    /// Arms one fault: the `nth` (1-based) call of `operation` raises ErrorMessage holding
    /// `message` instead of reaching the wrapped source. `operation` is a call's name as logged
    /// ("PrepareForTable", "Get(MIColumn)"); the empty text counts every call. Replaces any armed
    /// fault and restarts its count, but keeps the call log.
    void FailAt(int nth, const std::string& operation, const WyString& message);
    /// Disarms the fault; later calls all reach the wrapped source.
    void Disarm() { m_nth = 0; }
    /// True once the armed fault has been raised.
    bool Fired() const { return m_fired; }

    /// Every call received since the last ClearLog, in order, as "Name(arg,arg,...)" with texts in
    /// UTF-8 ("PrepareForTable(CRM,%,%,1)", "Get(MITable)"), the failing one included.
    const std::vector<std::string>& Log() const { return m_log; }
    void ClearLog() { m_log.clear(); }

    void OpenConnection(WyString& source, WyString& user, WyString& password, bool flag) override;
    void CloseConnection() override;
    void SetTargetType(TargetType type) override;
    void GetDefaultCatalog(WyString& catalog) override;
    void PrepareForCatalog(WyString& catalog) override;
    void PrepareForSchema(WyString& catalog, WyString& schema) override;
    void PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) override;
    void PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) override;
    void PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) override;
    void PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable, WyString& fkCatalog,
                              WyString& fkSchema, WyString& fkTable) override;
    void PrepareForStatistics(WyString& catalog, WyString& schema, WyString& table, IndexType index,
                              FrequencyAccuracy accuracy) override;
    void PrepareForWSInputParametersUpdate(WyString& a, WyString& b, WyString& c, WyString& d,
                                           WyString& e) override;
    bool Get(MICatalog& record) override;
    bool Get(MISchema& record) override;
    bool Get(MITable& record) override;
    bool Get(MIColumn& record) override;
    bool Get(MIPrimaryKey& record) override;
    bool Get(MIForeignKey& record) override;
    bool Get(MIStatistics& record) override;
    bool GetFeatures(SUFeaturesTable& features, TargetType& targetType) override;
    bool Get(MISynonym& record) override;
    void PrepareForAllSynonyms() override;
    void PrepareForUserInfo() override;
    void PrepareForRoleInfo() override;
    void PrepareForTablePrivileges(const WyString& catalog, const WyString& schema,
                                   const WyString& table) override;
    void PrepareForColumnPrivileges(const WyString& catalog, const WyString& schema, const WyString& table,
                                    const WyString& column) override;
    void PrepareForExecutionTimes(WyString text) override;
    bool Get(MIUserInfo& record) override;
    bool Get(MIRoleInfo& record) override;
    bool Get(MITablePrivileges& record) override;
    bool Get(MIColumnPrivileges& record) override;
    bool Get(MIExecutionTimes& record) override;
    bool GetIsTavrinMetadata() override;
    WyString GetAppID() override;
    WyString GetServiceBean() override;
    WyString GetJavahostServiceName() override;
    WyString GetHost() override;
    WyString GetPort() override;
    WyStringPairVector GetConfigParams() override;
    void SetConnectParameters(const WyString& a, const WyString& b, const WyString& c, const WyString& d,
                              const WyString& e, CLIType cliType) override;
    void SetTavrinEAI() override;
    bool GetTavrinEAI() override;
    void GetPickList(MIColumn& column) override;
    void PrepareForViewLink() override;
    void PrepareForAMProperties() override;
    bool Get(MIViewLink& record) override;
    bool Get(MIAMProperty& record) override;
    void SetConnectParameters(CLIType cliType, WyStringPairVector& params) override;
    void GetTargetDBType(TargetType& type) override;

private:
    /// Logs the call and raises the armed fault when this call is the one.
    void Enter(const std::string& name, const std::vector<WyString>& args = {});

    MIMetaDataImport& m_inner;
    std::vector<std::string> m_log;
    std::string m_operation;
    int m_nth = 0;
    int m_seen = 0;
    bool m_fired = false;
    WyString m_message;
};
