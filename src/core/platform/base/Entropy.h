#pragma once

namespace orvi::platform {

/** What differs between machines, processes and calls, without padding. Good for identifiers and no secret:
    where the system has no random bytes to give, they are zero and the rest must do. */
struct EntropyRecord {
    unsigned char random[16];
    long long wallNanos;
    long long steadyNanos;
    unsigned long process;
    char host[64];
};
EntropyRecord collectEntropy();

/** The system's id of the process; never 0. */
unsigned long currentProcessId();

} // namespace orvi::platform
