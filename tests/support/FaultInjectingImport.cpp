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

WyString FaultInjectingImport::Number(int value) {
    return BaseStringUtil::StringFrom(value);
}

void FaultInjectingImport::OpenConnection(WyString& source, WyString& user, WyString& password, bool flag) {
    Enter("OpenConnection", {source, user});
    if (m_counters)
        ++m_counters->opened;
    m_inner.OpenConnection(source, user, password, flag);
}
void FaultInjectingImport::CloseConnection() {
    Enter("CloseConnection");
    if (m_counters)
        ++m_counters->closed;
    m_inner.CloseConnection();
}
