#include "values/UuidGenerator.h"
#include "values/RandomSeed.h"

#include "UuidFields.h"

#include <doctest/doctest.h>

#include <array>
#include <bit>
#include <utility>
#include <vector>

using namespace orvi;

namespace {

constexpr std::uint64_t someTime = 0x01ee123456789000;

/** A clock that stands still until it is told otherwise. */
struct FakeSources final : UuidSources {
    std::uint64_t readClock() override
    {
        ++readings;
        if (--readingsLeft == 0)
            clock = nextClock;
        return clock;
    }
    unsigned long currentProcess() override { return process; }
    uuid_node_t makeNode() override { return {{0, 0, 0, 0, 0, static_cast<std::uint8_t>(process)}}; }
    void seedRandom(unsigned int seed) override { seeds.push_back(seed); }
    unsigned int random() override { return randomNumber; }

    std::uint64_t clock = someTime;
    std::uint64_t nextClock = 0; // from the reading on when none is left
    int readings = 0;
    int readingsLeft = 0;
    unsigned long process = 1;
    std::vector<unsigned int> seeds;
    unsigned int randomNumber = 0x7FFF1234;
};

} // namespace

TEST_CASE("the fields hold time, version, sequence and node")
{
    FakeSources sources;
    sources.clock = 0x0123456789abcdef;
    UuidGenerator generator(sources);
    const Uuid uuid = generator.create();
    CHECK((uuid.time_low == 0x89abcdef && uuid.time_mid == 0x4567 && uuid.time_hi_and_version == 0x1123));
    CHECK((uuid.clock_seq_hi_and_reserved == (0x12 | 0x80) && uuid.clock_seq_low == 0x34));
    CHECK(uuid.node.bytes[5] == 1);
    CHECK(sources.seeds ==
          std::vector<unsigned int>{(0x0123456789abcdef >> 42 ^ 0x0123456789abcdef >> 10) & 0xFFFFFFFF});
    // A new process gets a node and a sequence of its own.
    sources.process = 2;
    sources.randomNumber = 7;
    const Uuid childs = generator.create();
    CHECK((childs.node != uuid.node && sequenceOf(childs) == 7));
    CHECK(sources.seeds.size() == 1);
}

TEST_CASE("a clock that stands still gives 1024 more, and then is waited for")
{
    FakeSources sources;
    UuidGenerator generator(sources);
    for (std::uint64_t i = 0; i <= 1024; ++i)
        REQUIRE(timestampOf(generator.create()) == someTime + i);
    CHECK(sources.readings == 1025);

    const std::uint64_t later = someTime + 10000;
    sources.readingsLeft = 5;
    sources.nextClock = later;
    const Uuid waited = generator.create();
    CHECK(sources.readings == 1025 + 5);
    CHECK((timestampOf(waited) == later && sequenceOf(waited) == 0x1234));
    CHECK(timestampOf(generator.create()) == later + 1);
}

TEST_CASE("a clock that goes back starts another sequence")
{
    FakeSources sources;
    sources.randomNumber = 0xFFFE;
    UuidGenerator generator(sources);
    CHECK(sequenceOf(generator.create()) == 0x3FFE);
    generator.create();
    // Each row is one more step; the sequence wraps at 16 bits, of which a uuid shows 14.
    const std::pair<std::uint64_t, int> rows[] = {
        {someTime + 10000, 0x3FFE}, {someTime, 0x3FFF}, {someTime + 10000, 0x3FFF}, {1, 0}, {2, 0}, {1, 1}};
    for (const auto& [clock, sequence] : rows) {
        sources.clock = clock;
        CHECK(sequenceOf(generator.create()) == sequence);
    }
}

TEST_CASE("a seed is the low half of the shifted sum of a uuid's bytes")
{
    constexpr long long now = 0xA12345678;
    const std::pair<std::array<std::uint8_t, 16>, unsigned int> rows[] = {
        {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, 42125},
        {{}, 0xFFFF},
        {{0, 0, 64}, 0x12345678}, // the sum is 0x10000
        {{1, 0, 64}, 1},
    };
    for (const auto& [bytes, seed] : rows)
        CHECK(seedFromUuid(std::bit_cast<Uuid>(bytes), now) == seed);
}
