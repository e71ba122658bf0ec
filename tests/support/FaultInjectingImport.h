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

    /// Every call received, in order, as "Name(arg,arg,...)" with texts
    /// in UTF-8 ("PrepareForTable(CRM,%,%,1)", "Get(MITable)", "GetFeatures()"), failing ones
    /// included. GetPickList logs the column's name.
    const std::vector<std::string>& Calls() const { return m_calls; }

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

    void OpenConnection(WyString& source, WyString& user, WyString& password, bool flag) override;
    void CloseConnection() override;

// Each forwarder logs the call as "Name(arg,...)" (or "Get(Record)") and then reaches the wrapped
// source, unless an armed fault fires first.
#define UDML_FORWARD(Result, Name, Params, Logged, Args)                                                     \
    Result Name Params override {                                                                            \
        Enter(#Name, std::vector<WyString> Logged);                                                          \
        return m_inner.Name Args;                                                                            \
    }
#define UDML_FORWARD_GET(Record)                                                                             \
    bool Get(Record& record) override {                                                                      \
        Enter("Get(" #Record ")");                                                                           \
        return m_inner.Get(record);                                                                          \
    }
    UDML_FORWARD(void, SetTargetType, (TargetType type), ({Number(type)}), (type))
    UDML_FORWARD(void, GetDefaultCatalog, (WyString & catalog), ({}), (catalog))
    UDML_FORWARD(void, PrepareForCatalog, (WyString & catalog), ({catalog}), (catalog))
    UDML_FORWARD(void, PrepareForSchema, (WyString & catalog, WyString& schema), ({catalog, schema}),
                 (catalog, schema))
    UDML_FORWARD(void, PrepareForTable, (WyString & catalog, WyString& schema, WyString& table, uint8 types),
                 ({catalog, schema, table, Number(types)}), (catalog, schema, table, types))
    UDML_FORWARD(void, PrepareForColumn,
                 (WyString & catalog, WyString& schema, WyString& table, WyString& column),
                 ({catalog, schema, table, column}), (catalog, schema, table, column))
    UDML_FORWARD(void, PrepareForPrimaryKey, (WyString & catalog, WyString& schema, WyString& table),
                 ({catalog, schema, table}), (catalog, schema, table))
    UDML_FORWARD(void, PrepareForForeignKey,
                 (WyString & pkCatalog, WyString& pkSchema, WyString& pkTable, WyString& fkCatalog,
                  WyString& fkSchema, WyString& fkTable),
                 ({pkCatalog, pkSchema, pkTable, fkCatalog, fkSchema, fkTable}),
                 (pkCatalog, pkSchema, pkTable, fkCatalog, fkSchema, fkTable))
    UDML_FORWARD(void, PrepareForStatistics,
                 (WyString & catalog, WyString& schema, WyString& table, IndexType index,
                  FrequencyAccuracy accuracy),
                 ({catalog, schema, table}), (catalog, schema, table, index, accuracy))
    UDML_FORWARD(void, PrepareForWSInputParametersUpdate,
                 (WyString & a, WyString& b, WyString& c, WyString& d, WyString& e), ({a, b, c, d, e}),
                 (a, b, c, d, e))
    UDML_FORWARD(bool, GetFeatures, (SUFeaturesTable & features, TargetType& targetType), ({}),
                 (features, targetType))
    UDML_FORWARD(void, PrepareForAllSynonyms, (), ({}), ())
    UDML_FORWARD(void, PrepareForUserInfo, (), ({}), ())
    UDML_FORWARD(void, PrepareForRoleInfo, (), ({}), ())
    UDML_FORWARD(void, PrepareForTablePrivileges,
                 (const WyString& catalog, const WyString& schema, const WyString& table),
                 ({catalog, schema, table}), (catalog, schema, table))
    UDML_FORWARD(void, PrepareForColumnPrivileges,
                 (const WyString& catalog, const WyString& schema, const WyString& table,
                  const WyString& column),
                 ({catalog, schema, table, column}), (catalog, schema, table, column))
    UDML_FORWARD(void, PrepareForExecutionTimes, (WyString text), ({text}), (text))
    UDML_FORWARD(bool, GetIsTavrinMetadata, (), ({}), ())
    UDML_FORWARD(WyString, GetAppID, (), ({}), ())
    UDML_FORWARD(WyString, GetServiceBean, (), ({}), ())
    UDML_FORWARD(WyString, GetJavahostServiceName, (), ({}), ())
    UDML_FORWARD(WyString, GetHost, (), ({}), ())
    UDML_FORWARD(WyString, GetPort, (), ({}), ())
    UDML_FORWARD(WyStringPairVector, GetConfigParams, (), ({}), ())
    UDML_FORWARD(void, SetConnectParameters,
                 (const WyString& a, const WyString& b, const WyString& c, const WyString& d,
                  const WyString& e, CLIType cliType),
                 ({a, b, c, d, e}), (a, b, c, d, e, cliType))
    UDML_FORWARD(void, SetConnectParameters, (CLIType cliType, WyStringPairVector& params), ({}),
                 (cliType, params))
    UDML_FORWARD(void, SetTavrinEAI, (), ({}), ())
    UDML_FORWARD(bool, GetTavrinEAI, (), ({}), ())
    UDML_FORWARD(void, GetPickList, (MIColumn & column), ({column.columnName_}), (column))
    UDML_FORWARD(void, PrepareForViewLink, (), ({}), ())
    UDML_FORWARD(void, PrepareForAMProperties, (), ({}), ())
    UDML_FORWARD(void, GetTargetDBType, (TargetType & type), ({}), (type))
    UDML_FORWARD_GET(MICatalog)
    UDML_FORWARD_GET(MISchema)
    UDML_FORWARD_GET(MITable)
    UDML_FORWARD_GET(MIColumn)
    UDML_FORWARD_GET(MIPrimaryKey)
    UDML_FORWARD_GET(MIForeignKey)
    UDML_FORWARD_GET(MIStatistics)
    UDML_FORWARD_GET(MISynonym)
    UDML_FORWARD_GET(MIUserInfo)
    UDML_FORWARD_GET(MIRoleInfo)
    UDML_FORWARD_GET(MITablePrivileges)
    UDML_FORWARD_GET(MIColumnPrivileges)
    UDML_FORWARD_GET(MIExecutionTimes)
    UDML_FORWARD_GET(MIViewLink)
    UDML_FORWARD_GET(MIAMProperty)
#undef UDML_FORWARD
#undef UDML_FORWARD_GET

private:
    struct Fault {
        std::string prefix;
        int remaining;
        std::vector<WyString> messages;
        bool otherException;
    };
    /// Logs the call and raises the first armed fault whose count this call completes; a `name`
    /// that ends in ")" is logged as it is.
    void Enter(const std::string& name, const std::vector<WyString>& args = {});
    static WyString Number(int value);

    MIMetaDataImport& m_inner;
    std::vector<std::string> m_calls;
    std::vector<Fault> m_faults;
    bool m_fired = false;
    std::shared_ptr<Counters> m_counters;
};

/// UTF-8 form of a wide text, for readable test failures.
std::string Utf8(const WyString& text);
