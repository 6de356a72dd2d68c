#pragma once
#include <orvi/core/Uuid.h>

#include <cstdint>

inline std::uint64_t timestampOf(const orvi::Uuid& uuid)
{
    return static_cast<std::uint64_t>(uuid.time_hi_and_version & 0x0FFF) << 48 |
           static_cast<std::uint64_t>(uuid.time_mid) << 32 | uuid.time_low;
}

inline int sequenceOf(const orvi::Uuid& uuid)
{
    return (uuid.clock_seq_hi_and_reserved & 0x3F) << 8 | uuid.clock_seq_low;
}
