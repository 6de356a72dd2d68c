#include "UuidGenerator.h"

#include <thread>

namespace orvi {

Uuid UuidGenerator::create()
{
    std::uint64_t timestamp;
    unsigned int sequence;
    Uuid uuid;
    {
        const std::lock_guard lock(_mutex);
        timestamp = takeTimestamp();
        renewNode();
        if (timestamp < _lastTimestamp)
            _sequence = (_sequence + 1) & 0xFFFF;
        _lastTimestamp = timestamp;
        sequence = _sequence;
        uuid.node = _node;
    }
    uuid.time_low = static_cast<std::uint32_t>(timestamp);
    uuid.time_mid = static_cast<std::uint16_t>(timestamp >> 32);
    uuid.time_hi_and_version = static_cast<std::uint16_t>((timestamp >> 48 & 0x0FFF) | 0x1000);
    uuid.clock_seq_hi_and_reserved = static_cast<std::uint8_t>((sequence >> 8 & 0x3F) | 0x80);
    uuid.clock_seq_low = static_cast<std::uint8_t>(sequence);
    return uuid;
}

std::uint64_t UuidGenerator::takeTimestamp()
{
    for (;;) {
        const std::uint64_t reading = _sources.readClock();
        if (reading != _lastReading) {
            _lastReading = reading;
            _madeOnReading = 0;
            return reading;
        }
        if (_madeOnReading < uuidsPerReading)
            return reading + ++_madeOnReading;
        std::this_thread::yield();
    }
}

/** The child of a fork goes on with all of its parent's state: it would make the parent's next uuids, too. */
void UuidGenerator::renewNode()
{
    const unsigned long process = _sources.currentProcess();
    if (process == _process)
        return;
    _process = process;
    _node = _sources.makeNode();
    _sequence = randomSequence();
    _lastTimestamp = 0;
}

unsigned int UuidGenerator::randomSequence()
{
    if (!_isRandomSeeded)
        _sources.seedRandom(static_cast<unsigned int>((_lastReading >> 42) ^ (_lastReading >> 10)));
    _isRandomSeeded = true;
    return _sources.random() & 0xFFFF;
}

} // namespace orvi
