#pragma once
#include "ByteIO.h"

#include <algorithm>
#include <limits>
#include <string>

inline constexpr int noLie = std::numeric_limits<int>::min();
inline constexpr int noLimit = std::numeric_limits<int>::max();

/** Bytes behind a device that misbehaves. */
class FaultyIO : public ByteIO {
public:
    static orvi::Handle_T<FaultyIO> create(const std::string& bytes = {}) { return new FaultyIO(bytes); }

    int available() const override { return claimed != noLie ? claimed : ByteIO::available(); }
    int read(void* buffer, int size) override
    {
        if (static_cast<int>(position) >= readsUntil)
            return -1;
        if (++answers % (emptyAnswers + 1) != 0)
            return 0;
        return ByteIO::read(buffer, std::min({size, piece, readsUntil - static_cast<int>(position)}));
    }
    int write(const void* data, int size) override
    {
        return ByteIO::write(data, std::min(size, room - static_cast<int>(bytes.size())));
    }

    int claimed = noLie;      // what available() says instead of the truth
    int piece = noLimit;      // the most that a read delivers
    int readsUntil = noLimit; // the position at which reading fails
    int emptyAnswers = 0;     // before each read that delivers
    int room = noLimit;       // the most bytes that it takes

private:
    explicit FaultyIO(const std::string& content)
        : ByteIO(content)
    {}
    int answers = 0;
};
