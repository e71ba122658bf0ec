// Popping messages into the fixed buffers of C-style callers without losing any text, and the
// UTF-8 form of the whole stack for std::exception users.
#include "platform/ErrorMessage.h"

#include "platform/BaseStringUtil.h"

bool ErrorMessage::PopErrorMessage(wchar_t* buffer, unsigned long size) {
    if (buffer == nullptr || size == 0)
        return false;
    buffer[0] = L'\0';
    if (m_messages.empty())
        return false;
    WyString& front = m_messages.front();
    // A one-unit buffer holds only the terminator: answering true would make a caller that pops
    // until false loop forever on a non-empty message, so it is refused like a missing buffer.
    if (size == 1 && !front.empty())
        return false;
    const size_t room = static_cast<size_t>(size - 1);
    const size_t count = front.size() < room ? front.size() : room;
    front.copy(buffer, count);
    buffer[count] = L'\0';
    if (count < front.size())
        front.erase(0, count);
    else
        m_messages.pop_front();
    return true;
}

const char* ErrorMessage::what() const noexcept {
    try {
        m_what.clear();
        bool first = true;
        for (const WyString& message : m_messages) {
            if (!first)
                m_what += '\n';
            first = false;
            BaseStringUtil::AppendUtf8(message, m_what);
        }
        return m_what.c_str();
    } catch (...) {
        return "error message unavailable (out of memory)";
    }
}
