#include "TextPrinting.h"
#include "UuidFields.h"

#include <algorithm>
#include <array>
#include <bit>
#include <thread>
#include <vector>

using namespace orvi;

namespace {

#if defined(__SANITIZE_THREAD__)
constexpr std::size_t uuidsPerThread = 5000;
#else
constexpr std::size_t uuidsPerThread = 100000;
#endif

const wchar_t counting[] = L"01234567-89ab-cdef-8001-0a1b2c3d4e5f";

int versionOf(const Uuid& uuid) { return uuid.time_hi_and_version >> 12; }

} // namespace

TEST_CASE("a uuid is nothing until it is made")
{
    CHECK(Uuid() == uuid_convertFromString(L"00000000-0000-0000-0000-000000000000"));
    const Uuid first(Uuid::CREATE);
    Uuid second;
    CHECK((uuid_create(second) == 1 && first != second && first.node == second.node));
    CHECK((versionOf(first) == 1 && (first.clock_seq_hi_and_reserved & 0xC0) == 0x80));
    CHECK((first.node.bytes[0] & 1) == 1);
    // 2020-01-01 and 2500-01-01, as ticks: neither the epoch nor the unit is far off.
    CHECK((timestampOf(first) > 137971296000000000 && timestampOf(first) < 289446048000000000));
}

TEST_CASE("threads never make the same uuid, and on each of them time rises")
{
    std::vector<std::vector<Uuid>> made(8);
    std::vector<std::jthread> threads;
    for (auto& uuids : made) {
        threads.emplace_back([&uuids] {
            uuids.resize(uuidsPerThread);
            for (Uuid& uuid : uuids)
                uuid_create(uuid);
        });
    }
    threads.clear(); // joins
    std::vector<Uuid> all;
    for (const auto& uuids : made) {
        const auto disorder =
            std::adjacent_find(uuids.begin(), uuids.end(), [](const Uuid& a, const Uuid& b) {
                return sequenceOf(a) == sequenceOf(b) && timestampOf(a) >= timestampOf(b);
            });
        CHECK(disorder == uuids.end());
        all.insert(all.end(), uuids.begin(), uuids.end());
    }
    std::sort(all.begin(), all.end());
    CHECK(std::adjacent_find(all.begin(), all.end()) == all.end());
}

TEST_CASE("a uuid of a name is that of the standard, printed in the order of memory")
{
    // Worked out elsewhere; the texts are the standard's with the bytes of the first three groups reversed.
    const Uuid dns = uuid_convertFromString(L"10b8a76b-ad9d-d111-80b4-00c04fd430c8");
    const struct {
        const char* name;
        int size;
        const wchar_t* expected;
    } rows[] = {
        {"python.org", 10, L"ea59a46f-8aee-a43c-894e-db77e160355e"},
        {"", 0, L"74e67ec8-dc4d-fe3e-a74e-dfe25da5d7b3"},
        {nullptr, -1, L"74e67ec8-dc4d-fe3e-a74e-dfe25da5d7b3"},
    };
    for (const auto& row : rows) {
        Uuid inPlace = dns;
        uuid_create_md5_from_name(inPlace, inPlace, row.name, row.size);
        CHECK((inPlace.convertToString() == row.expected && versionOf(inPlace) == 3));
    }
}

TEST_CASE("uuids and nodes print their bytes in memory order, and a text with any deviation is none")
{
    Uuid uuid = uuid_convertFromString(L"01234567-89AB-CDEF-8001-0A1B2C3D4E5F");
    CHECK((uuid.time_low == 0x67452301 && uuid.time_hi_and_version == 0xefcd && uuid.node.bytes[5] == 0x5f));
    CHECK(uuid.convertToString() == counting);
    CHECK(uuid.node.convertToString() == L"0a1b2c3d4e5f");
    wchar_t buffer[Uuid::textLength + 1];
    CHECK((uuid_convertToString(uuid, buffer) && String(buffer) == counting));
    CHECK((uuid.node.convertToString(buffer) && String(buffer) == L"0a1b2c3d4e5f"));

    const String longer = String(counting) + L"!";
    CHECK(uuid_convertFromString(uuid, longer.getBuffer())); // the rest is not looked at
    CHECK(uuid.convertToString() == counting);
    CHECK(uuid_convertFromString(longer) == Uuid());
    CHECK((!uuid_convertFromString(uuid, nullptr) && uuid == Uuid()));

    // Every place spoilt, and every length cut: a block of the exact size shows a read beyond the terminator.
    for (std::size_t i = 0; i < Uuid::textLength; ++i) {
        for (const wchar_t wrong : {L'g', L'-', L'0', L'/', L':', L'@', L'G', L'`', L'\u0130', L'\0'}) {
            if (wrong == (counting[i] == L'-' ? L'-' : L'0'))
                continue;
            INFO(i, " ", static_cast<int>(wrong));
            std::vector<wchar_t> text(counting, counting + i);
            text.push_back(wrong);
            if (wrong != 0)
                text.insert(text.end(), counting + i + 1, std::end(counting));
            text.shrink_to_fit();
            uuid.time_low = 1;
            CHECK((!uuid_convertFromString(uuid, text.data()) && uuid == Uuid()));
        }
    }

    uuid_node_t node;
    CHECK(node.convertFromString(L"0a1B2c3D4e5F6")); // the pointer form stops where a node ends
    CHECK(node == uuid_convertFromString(counting).node);
    CHECK(!node.convertFromString(String(L"0a1b2c3d4e5f6")));
    for (const wchar_t* bad :
         {L"", L"0", L"0a1b2c3d4e5", L"0a1b2c3d4e5g", static_cast<const wchar_t*>(nullptr)}) {
        node.bytes[0] = 1;
        CHECK((!node.convertFromString(bad) && node == uuid_node_t()));
    }
}

TEST_CASE("uuids and nodes are ordered by signed words of the machine")
{
    // In ascending order. The top bit of a word is in its last byte; that of the node's last word in byte 5.
    const std::array<unsigned char, 16> rows[] = {{0, 0, 0, 0x80},
                                                  {255, 255, 255, 255, 255, 255, 255, 127, 1},
                                                  {0, 0, 0, 0, 0, 0, 0, 0x80},
                                                  {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255},
                                                  {},
                                                  {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                                                  {1},
                                                  {0, 1}};
    for (const auto& a : rows) {
        for (const auto& b : rows) {
            const int expected = (&a > &b) - (&a < &b);
            CHECK(uuid_compare(std::bit_cast<Uuid>(a), std::bit_cast<Uuid>(b)) == expected);
            CHECK((std::bit_cast<Uuid>(a) <=> std::bit_cast<Uuid>(b)) == (expected <=> 0));
        }
    }
    const uuid_node_t nodes[] = {
        {{0, 0, 0, 0x80, 9, 9}}, {{0, 0, 0, 0, 0, 0x80}}, {{0, 0, 0, 0, 0xFF, 0xFF}}, {},
        {{0, 0, 0, 0, 1, 0}},    {{1, 0, 0, 0, 0, 0}},
    };
    for (const auto& a : nodes) {
        for (const auto& b : nodes)
            CHECK((a <=> b) == ((&a > &b) - (&a < &b) <=> 0));
    }
}
