// The one scriptable import source of the tests: it wraps any source (in-memory, snapshot, ODBC),
// logs every call it forwards and raises a failure at chosen calls, so a test can break a walk at
// any point it reads from and see exactly what the walk asked for.
#pragma once

#include "import/MIMetaDataImport.h"

#include <memory>
#include <string>
#include <vector>

class FaultInjectingImport : public MIMetaDataImport {
public:
    /// Wraps `inner`, which stays the caller's and must outlive this source.
    explicit FaultInjectingImport(MIMetaDataImport& inner) : m_inner(inner) {}
    ~FaultInjectingImport() override;

    /// Every call received since the last ClearCalls, in order, as "Name(arg,arg,...)" with texts
    /// in UTF-8 ("PrepareForTable(CRM,%,%,1)", "Get(MITable)", "GetFeatures()"), failing ones
    /// included. GetPickList logs the column's name.
    const std::vector<std::string>& Calls() const { return m_calls; }
    /// The logged calls whose text begins with `prefix`.
    std::vector<std::string> CallsStartingWith(const std::string& prefix) const;
    void ClearCalls() { m_calls.clear(); }

    /// Arms a fault: the `nth` (1-based) call whose logged text begins with `callPrefix`
    /// ("Get(MITable)", "PrepareForColumn(,Sales,Orders,"; "" counts every call) raises
    /// ErrorMessage holding `messages` instead of reaching the wrapped source. Faults add up;
    /// each fires once.
    void FailAt(const std::string& callPrefix, int nth,
                std::vector<WyString> messages = {L"injected failure"});
    /// Like FailAt, but raises a std::runtime_error.
    void FailWithOtherAt(const std::string& callPrefix, int nth);
    /// Disarms every fault; later calls all reach the wrapped source.
    void Disarm() { m_faults.clear(); }
    /// True once any armed fault has been raised.
    bool Fired() const { return m_fired; }

    /// Counters shared with the test, so they outlive the source (destruction is counted too).
    struct Counters {
        int opened = 0;
        int closed = 0;
        int destroyed = 0;
    };
    void SetCounters(std::shared_ptr<Counters> counters) { m_counters = std::move(counters); }
    /// OpenConnection raises ErrorMessage with this message when not empty.
    void FailOpenWith(const WyString& message) { m_openFailure = message; }

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
    struct Fault {
        std::string prefix;
        int remaining;
        std::vector<WyString> messages;
        bool otherException;
    };
    /// Logs the call and raises the first armed fault whose count this call completes.
    void Enter(const std::string& name, const std::vector<WyString>& args = {});

    MIMetaDataImport& m_inner;
    std::vector<std::string> m_calls;
    std::vector<Fault> m_faults;
    bool m_fired = false;
    std::shared_ptr<Counters> m_counters;
    WyString m_openFailure;
};

/// UTF-8 form of a wide text, for readable test failures.
std::string Utf8(const WyString& text);
