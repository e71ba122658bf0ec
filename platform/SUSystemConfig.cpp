// The process-wide system configuration: one instance, made on first use.
#include "platform/SUSystemConfig.h"

SUSystemConfig& SUSystemConfig::GetSystemConfig() {
    static SUSystemConfig config;
    return config;
}
