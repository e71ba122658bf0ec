// A source that wraps any other and keeps a record of every failure met while a listing was read,
// so that a host can tell a complete walk from one the generator quietly cut short.
#pragma once

#include "import/MIMetaDataImport.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <vector>

/// Forwards every operation to the wrapped source. A failure of a PrepareFor... operation or of a
/// Get is recorded with what was being read, then thrown on unchanged, so the generator ends that
/// listing as it always does; the host asks HasFailures() after the request. When a failure says
/// the connection is gone (SQLSTATE class 08, a server's termination codes 57P01 to 57P03, a
/// timeout HYT00/HYT01, or a cancelled call HY008), every further listing would fail the same way:
/// the callback given to OnConnectionLost is called, once, so the host can abort the request.
/// The wrapped source stays the caller's.
class FailureRecordingImport : public MIMetaDataImport {
public:
    struct Failure {
        WyString what;                  // "reading the columns of "cat"."schema"."table""
        std::vector<WyString> messages; // the source's messages, most general first
        bool connectionLost = false;
    };

    explicit FailureRecordingImport(MIMetaDataImport& source) : m_source(source) {}

    /// Called once, on the first failure that ends the connection.
    void OnConnectionLost(std::function<void()> callback) { m_onLost = std::move(callback); }
    /// A call that fails after `seconds` or more (the timeout the host set) is taken for a server
    /// that stalls: like a lost connection it ends the run, rather than every later listing
    /// waiting as long. 0: no such rule.
    void SetStallSeconds(unsigned seconds) { m_stallSeconds = seconds; }
    bool HasFailures() const;
    std::vector<Failure> Failures() const;

    /// Whether the messages of an error say that the connection can serve no further request.
    static bool EndsConnection(const std::deque<WyString>& messages);

    void OpenConnection(WyString& source, WyString& user, WyString& password, bool prompt) override {
        m_source.OpenConnection(source, user, password, prompt);
    }
    void CloseConnection() override { m_source.CloseConnection(); }
    void SetTargetType(TargetType type) override { m_source.SetTargetType(type); }
    void GetDefaultCatalog(WyString& catalog) override { m_source.GetDefaultCatalog(catalog); }
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
    bool GetFeatures(SUFeaturesTable& features, TargetType& type) override {
        return m_source.GetFeatures(features, type);
    }
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
    bool GetIsTavrinMetadata() override { return m_source.GetIsTavrinMetadata(); }
    WyString GetAppID() override { return m_source.GetAppID(); }
    WyString GetServiceBean() override { return m_source.GetServiceBean(); }
    WyString GetJavahostServiceName() override { return m_source.GetJavahostServiceName(); }
    WyString GetHost() override { return m_source.GetHost(); }
    WyString GetPort() override { return m_source.GetPort(); }
    WyStringPairVector GetConfigParams() override { return m_source.GetConfigParams(); }
    void SetConnectParameters(const WyString& a, const WyString& b, const WyString& c, const WyString& d,
                              const WyString& e, CLIType type) override {
        m_source.SetConnectParameters(a, b, c, d, e, type);
    }
    void SetTavrinEAI() override { m_source.SetTavrinEAI(); }
    bool GetTavrinEAI() override { return m_source.GetTavrinEAI(); }
    void GetPickList(MIColumn& column) override;
    void PrepareForViewLink() override;
    void PrepareForAMProperties() override;
    bool Get(MIViewLink& record) override;
    bool Get(MIAMProperty& record) override;
    void SetConnectParameters(CLIType type, WyStringPairVector& parameters) override {
        m_source.SetConnectParameters(type, parameters);
    }
    void GetTargetDBType(TargetType& type) override { m_source.GetTargetDBType(type); }

private:
    // The kinds of listing, each with what its last preparation asked for.
    enum Kind { kCatalogs, kSchemas, kTables, kColumns, kPrimaryKeys, kForeignKeys, kOther, kKinds };

    // Runs `call`; a failure is recorded as `what` and thrown on.
    template <typename Call> auto Watch(const WyString& what, Call call) -> decltype(call());
    template <typename Call> void Prepare(Kind kind, const WyString& what, Call call) {
        m_reading[kind] = what;
        Watch(what, call);
    }
    template <typename Record> bool Fetch(Kind kind, Record& record) {
        return Watch(m_reading[kind], [&] { return m_source.Get(record); });
    }
    void Record(const WyString& what, const ErrorMessage& error, bool stalled);

    MIMetaDataImport& m_source;
    WyString m_reading[kKinds];
    std::function<void()> m_onLost;
    unsigned m_stallSeconds = 0;
    bool m_lostReported = false;
    mutable std::mutex m_mutex; // the host may read the failures from its signal watcher
    std::vector<Failure> m_failures;
};
