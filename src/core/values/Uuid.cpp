#include <orvi/core/Uuid.h>

#include <orvi/core/Digest.h>

#include "UuidGenerator.h"
#include "base/HexText.h"
#include "base/StringAccess.h"
#include "platform/base/Entropy.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace orvi {

namespace {

static_assert(std::is_trivially_copyable_v<Uuid>);
static_assert(std::has_unique_object_representations_v<Uuid>);

class SystemSources final : public UuidSources {
public:
    /** In whole milliseconds: a finer clock would let two readings lie closer together than the uuids that are
        made on the first of them. */
    std::uint64_t readClock() override
    {
        using namespace std::chrono;
        constexpr std::uint64_t unixEpoch = 122192928000000000; // 1970-01-01 in ticks
        constexpr std::uint64_t ticksPerMillisecond = 10000;
        const auto sinceUnix = floor<milliseconds>(system_clock::now()).time_since_epoch();
        return static_cast<std::uint64_t>(sinceUnix.count()) * ticksPerMillisecond + unixEpoch;
    }

    unsigned long currentProcess() override { return platform::currentProcessId(); }

    uuid_node_t makeNode() override
    {
        constexpr unsigned int multicast = 0x01;
        const platform::EntropyRecord record = platform::collectEntropy();
        unsigned char digest[16];
        MD5Context context;
        MD5Init(&context);
        MD5Update(&context, &record, sizeof record);
        MD5Final(digest, &context);
        digest[0] |= multicast;
        uuid_node_t node;
        std::memcpy(node.bytes, digest, sizeof node.bytes);
        return node;
    }

    // The one generator that the process has: its users expect that it is seeded here.
    void seedRandom(unsigned int seed) override { std::srand(seed); }
    unsigned int random() override { return static_cast<unsigned int>(std::rand()); }
};

constinit SystemSources systemSources;
constinit UuidGenerator generator(systemSources);
static_assert(std::is_trivially_destructible_v<UuidGenerator>); // usable to the very end of the process

/** A number of this machine's byte order from memory of any alignment. */
template <class Integer>
Integer load(const unsigned char* bytes)
{
    Integer value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

constexpr int order(int a, int b) { return (a > b) - (a < b); }

constexpr bool hasDashBehind(std::size_t byte) { return byte == 3 || byte == 5 || byte == 7 || byte == 9; }

wchar_t* print(wchar_t* target, const Uuid& uuid)
{
    unsigned char bytes[sizeof uuid];
    std::memcpy(bytes, &uuid, sizeof bytes);
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        target = text::printHexByte(target, bytes[i]);
        if (hasDashBehind(i))
            *target++ = L'-';
    }
    return target;
}

wchar_t* print(wchar_t* target, const uuid_node_t& node)
{
    for (const unsigned char byte : node.bytes)
        target = text::printHexByte(target, byte);
    return target;
}

/** The text as a string; empty without memory. */
template <class Value>
String printed(const Value& value)
{
    String text;
    wchar_t* target = StringAccess<wchar_t>::prepare(text, Value::textLength);
    if (target != nullptr)
        print(target, value);
    return text;
}

// The scan stops at the first wrong character, so it never runs over a terminator.
bool parse(unsigned char (&bytes)[sizeof(Uuid)], const wchar_t* text)
{
    for (std::size_t i = 0; i < sizeof bytes; ++i, text += 2) {
        if (!text::parseHexByte(text, bytes[i]))
            return false;
        if (hasDashBehind(i) && *(text++ + 2) != L'-')
            return false;
    }
    return true;
}

/** The fields that numbers make up, in network byte order. */
void storeFields(unsigned char* target, const Uuid& uuid)
{
    const std::uint64_t fields = static_cast<std::uint64_t>(uuid.time_low) << 32 |
                                 static_cast<std::uint64_t>(uuid.time_mid) << 16 | uuid.time_hi_and_version;
    for (int i = 0; i < 8; ++i)
        target[i] = static_cast<unsigned char>(fields >> (56 - 8 * i));
}

void loadFields(Uuid& uuid, const unsigned char* source)
{
    std::uint64_t fields = 0;
    for (int i = 0; i < 8; ++i)
        fields = fields << 8 | source[i];
    uuid.time_low = static_cast<std::uint32_t>(fields >> 32);
    uuid.time_mid = static_cast<std::uint16_t>(fields >> 16);
    uuid.time_hi_and_version = static_cast<std::uint16_t>(fields);
}

} // namespace

int uuid_create(Uuid& uuid)
{
    uuid = generator.create();
    return 1;
}

void uuid_create_md5_from_name(Uuid& out, const Uuid& nameSpace, const void* name, int size)
{
    unsigned char bytes[sizeof(Uuid)];
    std::memcpy(bytes, &nameSpace, sizeof bytes);
    storeFields(bytes, nameSpace);

    unsigned char digest[sizeof(Uuid)];
    MD5Context context;
    MD5Init(&context);
    MD5Update(&context, bytes, sizeof bytes);
    if (size > 0)
        MD5Update(&context, name, static_cast<unsigned int>(size));
    MD5Final(digest, &context);

    std::memcpy(&out, digest, sizeof digest);
    loadFields(out, digest);
    out.time_hi_and_version = static_cast<std::uint16_t>((out.time_hi_and_version & 0x0FFF) | 0x3000);
    out.clock_seq_hi_and_reserved = static_cast<std::uint8_t>((out.clock_seq_hi_and_reserved & 0x3F) | 0x80);
}

int uuid_compare(const Uuid& a, const Uuid& b)
{
    std::int32_t left[4], right[4];
    std::memcpy(left, &a, sizeof left);
    std::memcpy(right, &b, sizeof right);
    for (int i = 0; i < 4; ++i) {
        if (left[i] != right[i])
            return order(left[i], right[i]);
    }
    return 0;
}

bool uuid_convertToString(const Uuid& uuid, wchar_t* buffer)
{
    *print(buffer, uuid) = 0;
    return true;
}

String uuid_convertToString(const Uuid& uuid) { return printed(uuid); }

bool uuid_convertFromString(Uuid& uuid, const wchar_t* text)
{
    unsigned char bytes[sizeof uuid];
    const bool isUuid = text != nullptr && parse(bytes, text);
    if (isUuid)
        std::memcpy(&uuid, bytes, sizeof bytes);
    else
        uuid = Uuid();
    return isUuid;
}

Uuid uuid_convertFromString(const String& text)
{
    Uuid uuid;
    if (text.getLength() == Uuid::textLength)
        uuid_convertFromString(uuid, text.getBuffer());
    return uuid;
}

String Uuid::convertToString() const { return printed(*this); }

bool uuid_node_t::convertToString(wchar_t* buffer) const
{
    *print(buffer, *this) = 0;
    return true;
}

String uuid_node_t::convertToString() const { return printed(*this); }

bool uuid_node_t::convertFromString(const wchar_t* text)
{
    uuid_node_t read;
    bool isNode = text != nullptr;
    for (std::size_t i = 0; isNode && i < sizeof read.bytes; ++i)
        isNode = text::parseHexByte(text + 2 * i, read.bytes[i]);
    *this = isNode ? read : uuid_node_t();
    return isNode;
}

bool uuid_node_t::convertFromString(const String& text)
{
    return convertFromString(text.getLength() == textLength ? text.getBuffer() : nullptr);
}

int uuid_node_t::compare(const uuid_node_t& other) const
{
    const int byWord = order(load<std::int32_t>(bytes), load<std::int32_t>(other.bytes));
    return byWord != 0 ? byWord : order(load<std::int16_t>(bytes + 4), load<std::int16_t>(other.bytes + 4));
}

} // namespace orvi
