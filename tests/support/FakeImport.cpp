// The scriptable fake import source: logging and fault injection around MemoryImport.
#include "FakeImport.h"

#include "platform/BaseStringUtil.h"

#include <stdexcept>

std::string Utf8(const WyString& text) {
    return BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
}

namespace {
std::string Args(std::initializer_list<const WyString*> args) {
    std::string text;
    bool first = true;
    for (const WyString* arg : args) {
        if (!first)
            text += ",";
        first = false;
        text += Utf8(*arg);
    }
    return text;
}
} // namespace

FakeImport::FakeImport(SourceMetadata metadata)
    : MemoryImport(std::make_shared<const SourceMetadata>(std::move(metadata))) {}

FakeImport::~FakeImport() {
    if (m_counters)
        ++m_counters->destroyed;
}

std::vector<std::string> FakeImport::CallsStartingWith(const std::string& prefix) const {
    std::vector<std::string> calls;
    for (const std::string& call : m_calls)
        if (call.compare(0, prefix.size(), prefix) == 0)
            calls.push_back(call);
    return calls;
}

void FakeImport::FailAt(const std::string& callPrefix, int nth, std::vector<WyString> messages) {
    m_faults.push_back(Fault{callPrefix, nth, std::move(messages), false});
}

void FakeImport::FailWithOtherAt(const std::string& callPrefix, int nth) {
    m_faults.push_back(Fault{callPrefix, nth, {}, true});
}

void FakeImport::Record(std::string call) {
    m_calls.push_back(call);
    for (Fault& fault : m_faults) {
        if (fault.remaining <= 0 || call.compare(0, fault.prefix.size(), fault.prefix) != 0)
            continue;
        if (--fault.remaining > 0)
            continue;
        if (fault.otherException)
            throw std::runtime_error("injected exception at " + call);
        ErrorMessage error;
        for (const WyString& message : fault.messages)
            error.AddMessage(message);
        throw error;
    }
}

void FakeImport::OpenConnection(WyString& source, WyString& user, WyString& password, bool flag) {
    Record("OpenConnection(" + Args({&source, &user, &password}) + ")");
    if (m_counters)
        ++m_counters->opened;
    if (!m_openFailure.empty())
        throw ErrorMessage(m_openFailure);
    MemoryImport::OpenConnection(source, user, password, flag);
}

void FakeImport::CloseConnection() {
    Record("CloseConnection()");
    if (m_counters)
        ++m_counters->closed;
    MemoryImport::CloseConnection();
}

void FakeImport::PrepareForCatalog(WyString& catalog) {
    Record("PrepareForCatalog(" + Args({&catalog}) + ")");
    MemoryImport::PrepareForCatalog(catalog);
}

void FakeImport::PrepareForSchema(WyString& catalog, WyString& schema) {
    Record("PrepareForSchema(" + Args({&catalog, &schema}) + ")");
    MemoryImport::PrepareForSchema(catalog, schema);
}

void FakeImport::PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) {
    Record("PrepareForTable(" + Args({&catalog, &schema, &table}) + "," + std::to_string(tableType) + ")");
    MemoryImport::PrepareForTable(catalog, schema, table, tableType);
}

void FakeImport::PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) {
    Record("PrepareForColumn(" + Args({&catalog, &schema, &table, &column}) + ")");
    MemoryImport::PrepareForColumn(catalog, schema, table, column);
}

void FakeImport::PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) {
    Record("PrepareForPrimaryKey(" + Args({&catalog, &schema, &table}) + ")");
    MemoryImport::PrepareForPrimaryKey(catalog, schema, table);
}

void FakeImport::PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                      WyString& fkCatalog, WyString& fkSchema, WyString& fkTable) {
    Record("PrepareForForeignKey(" +
           Args({&pkCatalog, &pkSchema, &pkTable, &fkCatalog, &fkSchema, &fkTable}) + ")");
    MemoryImport::PrepareForForeignKey(pkCatalog, pkSchema, pkTable, fkCatalog, fkSchema, fkTable);
}

bool FakeImport::Get(MICatalog& record) {
    Record("Get(MICatalog)");
    return MemoryImport::Get(record);
}
bool FakeImport::Get(MISchema& record) {
    Record("Get(MISchema)");
    return MemoryImport::Get(record);
}
bool FakeImport::Get(MITable& record) {
    Record("Get(MITable)");
    return MemoryImport::Get(record);
}
bool FakeImport::Get(MIColumn& record) {
    Record("Get(MIColumn)");
    return MemoryImport::Get(record);
}
bool FakeImport::Get(MIPrimaryKey& record) {
    Record("Get(MIPrimaryKey)");
    return MemoryImport::Get(record);
}
bool FakeImport::Get(MIForeignKey& record) {
    Record("Get(MIForeignKey)");
    return MemoryImport::Get(record);
}
bool FakeImport::Get(MIViewLink& record) {
    Record("Get(MIViewLink)");
    return MemoryImport::Get(record);
}
bool FakeImport::GetFeatures(SUFeaturesTable& features, TargetType& targetType) {
    Record("GetFeatures()");
    return MemoryImport::GetFeatures(features, targetType);
}
bool FakeImport::GetIsTavrinMetadata() {
    Record("GetIsTavrinMetadata()");
    return MemoryImport::GetIsTavrinMetadata();
}
bool FakeImport::GetTavrinEAI() {
    Record("GetTavrinEAI()");
    return MemoryImport::GetTavrinEAI();
}
void FakeImport::GetPickList(MIColumn& column) {
    Record("GetPickList(" + Utf8(column.columnName_) + ")");
    MemoryImport::GetPickList(column);
}
void FakeImport::PrepareForViewLink() {
    Record("PrepareForViewLink()");
    MemoryImport::PrepareForViewLink();
}
