#include "Apps.h"
#include "CommandBox.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Time.h>
#include <orvi/core/Uuid.h>

namespace apphost {

using orvi::AppBox;
using orvi::Handle_T;
using orvi::String;
using orvi::Uuid;

namespace {

constexpr long long mostAtOnce = 1000;
constexpr int ticksPerSecond = 10'000'000;
constexpr int timeVersion = 1;

/** A name space of RFC 4122: they differ in one digit. */
Uuid standardSpace(std::uint32_t timeLow)
{
    Uuid space;
    space.time_low = timeLow;
    space.time_mid = 0x9dad;
    space.time_hi_and_version = 0x11d1;
    space.clock_seq_hi_and_reserved = 0x80;
    space.clock_seq_low = 0xb4;
    space.node = {{0x00, 0xc0, 0x4f, 0xd4, 0x30, 0xc8}};
    return space;
}

int versionOf(const Uuid& uuid) { return uuid.time_hi_and_version >> 12; }

/** Of a uuid of time: when it was made. */
orvi::Time timeOf(const Uuid& uuid)
{
    std::tm epoch{};
    epoch.tm_year = 1582;
    epoch.tm_mon = 10;
    epoch.tm_mday = 15;
    const long long high = uuid.time_hi_and_version & 0xfff;
    const long long ticks = high << 48 | static_cast<long long>(uuid.time_mid) << 32 | uuid.time_low;
    return orvi::mktime(epoch) + ticks / ticksPerSecond;
}

/** Makes identifiers and takes them apart. */
class UuidBox : public CommandBox {
public:
    UuidBox(const String& appName, const String& parameters)
        : CommandBox(
              appName, parameters,
              {
                  {L"new", L"[COUNT]", L"fresh ones, of time and node", 0, 1, method(this, &UuidBox::create)},
                  {L"name", L"SPACE NAME...", L"that of a name; SPACE is dns, url or a uuid", 2, anyNumber,
                   method(this, &UuidBox::name)},
                  {L"show", L"UUID", L"what it is made of", 1, 1, method(this, &UuidBox::show)},
                  {L"compare", L"UUID UUID", L"less, equal or greater", 2, 2,
                   method(this, &UuidBox::compare)},
              })
    {}

private:
    static bool take(const Call& call, int index, Uuid& uuid)
    {
        return (orvi::stringLength(call[index]) == Uuid::textLength &&
                orvi::uuid_convertFromString(uuid, call[index])) ||
               call.fail(L"'%s' is no uuid: write it as 10b8a76b-ad9d-d111-80b4-00c04fd430c8", call[index]);
    }

    bool create(const Call& call)
    {
        const auto count = call.arguments() == 1 ? parseNumber(call[1]) : 1;
        if (!count || *count < 1 || *count > mostAtOnce)
            return call.fail(L"'%s' is no number from 1 to %I64d", call[1], mostAtOnce);
        for (long long i = 0; i < *count; ++i)
            call.say(L"%s", Uuid::create().convertToString().getBuffer());
        return true;
    }

    bool name(const Call& call)
    {
        const String space = call[1];
        Uuid spaceId;
        if (space == L"dns")
            spaceId = standardSpace(0x6ba7b810);
        else if (space == L"url")
            spaceId = standardSpace(0x6ba7b811);
        else if (!take(call, 1, spaceId))
            return false;
        const orvi::String_T<char> bytes = orvi::StringHelper::wideToUtf8(call.rest(2));
        Uuid uuid;
        orvi::uuid_create_md5_from_name(uuid, spaceId, bytes.getBuffer(), bytes.getBufferLength() - 1);
        call.say(L"%s", uuid.convertToString().getBuffer());
        return true;
    }

    bool show(const Call& call)
    {
        Uuid uuid;
        if (!take(call, 1, uuid))
            return false;
        call.say(L"%s, version %d, node %s", uuid.convertToString().getBuffer(), versionOf(uuid),
                 uuid.node.convertToString().getBuffer());
        if (versionOf(uuid) == timeVersion)
            call.say(L"made %s", timeOf(uuid).convertToString(true).getBuffer());
        return true;
    }

    bool compare(const Call& call)
    {
        Uuid a, b;
        if (!take(call, 1, a) || !take(call, 2, b))
            return false;
        const int order = orvi::uuid_compare(a, b);
        call.say(L"%s", order < 0 ? L"less" : order > 0 ? L"greater" : L"equal");
        return true;
    }
};

} // namespace

Handle_T<AppBox> createUuidBox(const wchar_t* appName, const wchar_t* parameters)
{
    return new UuidBox(appName, parameters);
}

} // namespace apphost
