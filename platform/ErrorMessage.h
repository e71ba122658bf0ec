// The exception by which import sources report failures: a stack of messages a user can act on.
#pragma once

#include "platform/WyString.h"

#include <deque>
#include <exception>
#include <string>

class ErrorMessage : public std::exception {
public:
    ErrorMessage() = default;
    explicit ErrorMessage(const WyString& message) { AddMessage(message); }

    /// Adds a message after those already held; messages are popped in the order they were added.
    void AddMessage(const WyString& message) { m_messages.push_back(message); }
    /// Adds a message before those already held (context that an outer layer knows).
    void AddMessageFront(const WyString& message) { m_messages.push_front(message); }

    /// Copies the next message into `buffer` (NUL-terminated, at most `size` - 1 code units) and
    /// returns true, or returns false when no message is left. A message longer than the buffer is
    /// split: the rest stays on the stack as the next message, so no text is ever lost.
    bool PopErrorMessage(wchar_t* buffer, unsigned long size);

    const std::deque<WyString>& Messages() const { return m_messages; }
    /// All messages, one per line, in UTF-8.
    const char* what() const noexcept override;

private:
    std::deque<WyString> m_messages;
    mutable std::string m_what;
};
