#pragma once
#include <orvi/core/Uuid.h>

#include <cstdint>
#include <mutex>

namespace orvi {

/** What a UuidGenerator asks the world outside. Called under the generator's lock. */
class UuidSources {
public:
    /** Ticks of 100 ns since 1582-10-15 00:00. It steps by more ticks than uuids are made in a step. */
    virtual std::uint64_t readClock() = 0;
    /** Tells the process from others that run: its node must not be theirs. */
    virtual unsigned long currentProcess() = 0;
    virtual uuid_node_t makeNode() = 0;
    virtual void seedRandom(unsigned int seed) = 0;
    virtual unsigned int random() = 0;

protected:
    ~UuidSources() = default;
};

/** Makes uuids of time and node, for any number of threads. Its state is that of one process's life. */
class UuidGenerator {
public:
    static constexpr unsigned int uuidsPerReading = 1024; // besides the one of the bare reading

    /** Borrows the sources. */
    constexpr explicit UuidGenerator(UuidSources& sources) noexcept
        : _sources(sources)
    {}

    Uuid create();

private:
    std::uint64_t takeTimestamp();
    void renewNode();
    unsigned int randomSequence();

    UuidSources& _sources;
    std::mutex _mutex; // guards all below
    std::uint64_t _lastReading = 0;
    unsigned int _madeOnReading = uuidsPerReading; // so that the first one wants a reading of its own
    std::uint64_t _lastTimestamp = 0;
    unsigned int _sequence = 0; // 16 bits, of which 14 get into a uuid
    uuid_node_t _node;
    unsigned long _process = 0; // that of the node and the sequence; 0: there are none yet
    bool _isRandomSeeded = false;
};

} // namespace orvi
