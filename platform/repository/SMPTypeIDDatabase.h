// Repository type ids of the physical layer's objects.
#pragma once

#include <cstdint>

using TypeID = int32_t;

enum SMPTypeIDDatabase : int32_t {
    kTIDATable = 3001,
    kTIDTable = 3002,
    kTIDAColumn = 3003,
    kTIDAForeignKey = 3006,
    kTIDATableKey = 3008,
    kTIDAComplexJoin = 3011,
    kTIDADatabase = 3023,
    kTIDACatalog = 3025,
    kTIDASchema = 3027,
};
