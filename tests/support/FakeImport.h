// The scriptable fake import source of the writer tests: an in-memory source that logs every call
// it receives and raises ErrorMessage where a test tells it to.
#pragma once

#include "import/memory/MemoryImport.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class FakeImport : public MemoryImport {
public:
    explicit FakeImport(SourceMetadata metadata = SourceMetadata());
    ~FakeImport() override;

    /// Every call received, in order, as "Operation(arg,arg,...)" with wide texts in UTF-8; Get calls
    /// are logged as "Get(MITable)" and so on. Prepare... arguments are logged as given.
    const std::vector<std::string>& Calls() const { return m_calls; }
    /// The calls whose text begins with `prefix`.
    std::vector<std::string> CallsStartingWith(const std::string& prefix) const;
    void ClearCalls() { m_calls.clear(); }

    /// Raises ErrorMessage with `messages` at the `nth` (1-based) call whose logged text begins
    /// with `callPrefix` ("Get(MITable)", "PrepareForColumn(", "PrepareForColumn(,Sales,Orders,").
    void FailAt(const std::string& callPrefix, int nth,
                std::vector<WyString> messages = {L"injected failure"});
    /// Raises a std::runtime_error instead of an ErrorMessage at that call.
    void FailWithOtherAt(const std::string& callPrefix, int nth);

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
    void PrepareForCatalog(WyString& catalog) override;
    void PrepareForSchema(WyString& catalog, WyString& schema) override;
    void PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) override;
    void PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) override;
    void PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) override;
    void PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable, WyString& fkCatalog,
                              WyString& fkSchema, WyString& fkTable) override;
    bool Get(MICatalog& record) override;
    bool Get(MISchema& record) override;
    bool Get(MITable& record) override;
    bool Get(MIColumn& record) override;
    bool Get(MIPrimaryKey& record) override;
    bool Get(MIForeignKey& record) override;
    bool Get(MIViewLink& record) override;
    bool GetFeatures(SUFeaturesTable& features, TargetType& targetType) override;
    bool GetIsTavrinMetadata() override;
    bool GetTavrinEAI() override;
    void GetPickList(MIColumn& column) override;
    void PrepareForViewLink() override;
    using MemoryImport::Get;

private:
    struct Fault {
        std::string prefix;
        int remaining;
        std::vector<WyString> messages;
        bool otherException;
    };
    void Record(std::string call);

    std::vector<std::string> m_calls;
    std::vector<Fault> m_faults;
    std::shared_ptr<Counters> m_counters;
    WyString m_openFailure;
};

/// UTF-8 form of a wide text, for readable test failures.
std::string Utf8(const WyString& text);
