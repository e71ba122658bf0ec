// The slice of the server's system configuration that the generator reads.
#pragma once

#include <atomic>

class SUSystemConfig {
public:
    /// The process-wide configuration.
    static SUSystemConfig& GetSystemConfig();

    /// Exact numerics (NUMERIC, DECIMAL) are typed DOUBLE when on. Off unless the host turns it on.
    bool IsNumericAsDouble() const { return m_bNumericAsDouble.load(std::memory_order_relaxed); }
    void SetNumericAsDouble(bool on) { m_bNumericAsDouble.store(on, std::memory_order_relaxed); }

private:
    std::atomic<bool> m_bNumericAsDouble{false};
};
