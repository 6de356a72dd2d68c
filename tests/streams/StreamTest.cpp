#include "FaultyIO.h"
#include "RecordingLog.h"
#include "TextPrinting.h"

#include <orvi/core/Buffer.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Stream.h>
#include <orvi/core/Varint.h>

#include <cstdint>
#include <limits>

using namespace orvi;

namespace streamtest {

class Link : public Unknown {
    ORVI_DECLARE_CLASS(Link);

public:
    void exportTo(OutputStream& os) const override { os << name << next; }
    void importFrom(InputStream& is) override { is >> name >> next; }

    String name;
    Handle_T<Link> next;
};
ORVI_DEFINE_CLASS(Link);

class NamedLink : public Link {
    ORVI_DECLARE_CLASS(NamedLink);
};
ORVI_DEFINE_CLASS(NamedLink);

class UnregisteredLink : public Link {};

} // namespace streamtest

using streamtest::Link, streamtest::NamedLink;

namespace {

/** What the exception of an action says; empty when it throws none. */
template <class Action>
String failureOf(Action action)
{
    try {
        action();
    } catch (const Exception& exception) {
        CHECK(exception.code() == -1);
        return exception.description();
    }
    return String();
}

template <class T>
String readFailure(const std::string& bytes, T& value)
{
    InputStream is(ByteIO::create(bytes));
    return failureOf([&] { is >> value; });
}

/** What writing says where the output takes so many bytes. */
template <class T>
String writeFailure(int room, const T& value)
{
    const auto full = FaultyIO::create();
    full->room = room;
    OutputStream os(full);
    return failureOf([&] { os << value; });
}

template <class T>
std::string written(const T& value)
{
    const auto io = ByteIO::create();
    OutputStream os(io);
    os << value;
    return io->bytes;
}

template <class T>
void checkForm(const T& value, const std::string& hex)
{
    CHECK(hexOf(written(value)) == hex);
    const auto io = ByteIO::create(bytesOf(hex));
    InputStream is(io);
    T copy{};
    is >> copy;
    CHECK((copy == value && io->available() == 0));
}

template <class T>
concept Writable = requires(OutputStream& os, const T& value)
{
    os << value;
};

static_assert(!Writable<bool> && !Writable<wchar_t> && !Writable<const wchar_t*> && !Writable<wchar_t[2]>);
static_assert(!Writable<const char*> && !Writable<void*> && !Writable<Link*> && !Writable<std::nullptr_t>);

} // namespace

TEST_CASE("values have one form on a stream")
{
    checkForm('A', "41");
    checkForm<std::uint16_t>(0x1234, "34 12");
    checkForm<std::int32_t>(-2, "FE FF FF FF");
    checkForm<std::uint64_t>(0x0102030405060708, "08 07 06 05 04 03 02 01");
    checkForm(1.0F, "00 00 80 3F");
    checkForm(1.0, "00 00 00 00 00 00 F0 3F");
    std::uint16_t small = 1;
    CHECK(readFailure("x", small) == L"orvi::InputStream& operator>>(orvi::InputStream &is,uint16_t &i)");
    CHECK(writeFailure(1, small) ==
          L"orvi::OutputStream& operator<<(orvi::OutputStream &os, const uint16_t &i)");

    checkForm(String_T<char>("abc"), "06 61 62 63");
    checkForm(String(), "00");
    checkForm(String(L"\u0416"), "04 D0 96");
    checkForm(String_T<unsigned char>(0xE9), "04 C3 A9");
    String_T<char> withNul;
    withNul.setBuffer("a\0b", 3);
    CHECK(hexOf(written(withNul)) == "06 61 00 62");
    for (const int length : {170, 171, 512, 513}) { // around those that take no block on the way
        const std::vector<wchar_t> units(static_cast<std::size_t>(length), L'\u20AC');
        const String text(units.data(), length);
        String copy;
        CHECK((readFailure(written(text), copy).isEmpty() && copy == text));
    }

    checkForm(Buffer(), "00");
    Buffer block;
    block.convertFromHex(L"dead");
    checkForm(block, "04 DE AD");
}

TEST_CASE("a Varint is short for numbers close to 0, and reads what others may write")
{
    const std::pair<std::int64_t, const char*> rows[] = {
        {-1, "01"},
        {-64, "7F"},
        {64, "80 01"},
        {2147483647, "FE FF FF FF 0F"},
        {-2147483648, "FF FF FF FF 0F"},
        {std::numeric_limits<std::int64_t>::max(), "FE FF FF FF FF FF FF FF FF 01"},
        {std::numeric_limits<std::int64_t>::min(), "FF FF FF FF FF FF FF FF FF 01"},
    };
    for (const auto& [value, hex] : rows) {
        checkForm(Varint64(value), hex);
        if (value == static_cast<std::int32_t>(value))
            checkForm(Varint(static_cast<std::int32_t>(value)), hex);
    }
    const String tooLong = L"Tyis& operator >>(Tyis &is, Varint_T &v)";
    const String cutShort = L"orvi::InputStream& operator>>(orvi::InputStream &is,uint8_t &i)";
    Varint small(7);
    Varint64 big(7);
    CHECK(readFailure(bytesOf("FF FF FF FF FF 01"), small) == tooLong);
    CHECK(readFailure(bytesOf("FF FF"), small) == cutShort);
    CHECK(readFailure(std::string(11, '\x80'), big) == tooLong);
    CHECK(readFailure(std::string(9, '\x80'), big) == cutShort);
    CHECK((small == 7 && big == 7));
    CHECK((readFailure(bytesOf("82 80 80 80 00"), small).isEmpty() && small == 1)); // not minimal
    CHECK(readFailure(bytesOf("FF FF FF FF 1F"), small).isEmpty());                 // bits beyond 32
    CHECK(small == std::numeric_limits<std::int32_t>::min());
    CHECK((readFailure(std::string(9, '\x80') + "\x7E", big).isEmpty() && big == 0));
    CHECK(writeFailure(1, Varint(64)) == L"Tyos& operator <<(Tyos &os, const Varint_T &v)");
}

TEST_CASE("a string or a Buffer is read when all of it is there, or not at all")
{
    // `claimed` is what the source promises.
    const auto check = [](auto text, const char* hex, int claimed, std::size_t consumed) {
        CAPTURE(hex);
        const auto io = FaultyIO::create(bytesOf(hex));
        io->claimed = claimed;
        InputStream is(io);
        auto target = text;
        CHECK(failureOf([&] { is >> target; }) == L"TyIs& operator >>(TyIs&, String&)");
        CHECK((target == text && io->position == consumed));
    };
    check(String(L"old"), "08 61 62 63", noLie, 1);
    check(String(L"old"), "01 61 62 63", noLie, 1); // -1
    check(String(L"old"), "08 61 62 63", noLimit, 4);
    check(String(L"old"), "80 80 80 80 08 61", noLimit, 6);
    check(String(L"old"), "FE FF FF FF 0F 61", noLimit, 6); // more than a block may have
    check(String_T<char>("old"), "01 61 62 63", noLie, 1);
    check(String_T<unsigned char>(int('o')), "08 61 62 63", noLimit, 4);
    CHECK(writeFailure(3, String(L"abc")) == L"TyOs& operator <<(TyOs&, const String&)");

    // A Buffer is empty then: a negative length, too short (once of the target's size), 1 GiB.
    for (const char* hex : {"01 61", "08 61 62 63", "0A 61 62 63", "80 80 80 80 08 61"}) {
        CAPTURE(hex);
        Buffer buffer(4);
        CHECK(readFailure(bytesOf(hex), buffer) == L"TyIs& operator >>(TyIs &, Buffer &)");
        CHECK((buffer.getBufferSize() == 0 && buffer.getBuffer() == nullptr));
    }
    CHECK(writeFailure(2, Buffer(2)) == L"TyOs& operator <<(TyOs &, const Buffer &)");
}

TEST_CASE("objects travel with their class, and a handle may be null, unknown or broken")
{
    const Handle_T<Link> link = new NamedLink;
    link->name = L"a";
    const std::string bytes = written(link);
    CHECK((bytes.substr(0, 1) == "O" && bytes.substr(5) == bytesOf("02 61 6F")));
    Handle_T<Link> target;
    CHECK((readFailure(bytes, target).isEmpty() && written(target) == bytes));
    Handle_T<NamedLink> narrow = new NamedLink;
    const std::string plain = written(Handle_T<Link>(new Link));
    CHECK(readFailure(plain, narrow) == L"TyIs& operator >>(TyIs &,streamtest::NamedLink::Handle &)");
    CHECK(narrow.isNull());

    target = link;
    CHECK(readFailure("x", target) == L"TyIs& operator >>(TyIs &,streamtest::Link::Handle &) Error!");
    for (std::size_t end = 0; end < 5; ++end)
        CHECK(!readFailure(bytes.substr(0, end), target).isEmpty());
    for (std::size_t room = 0; room < bytes.size(); ++room)
        CHECK(!writeFailure(static_cast<int>(room), link).isEmpty());
    CHECK(target == link);
    CHECK(readFailure(bytesOf("4F 01 00 00 00"), target) ==
          L"TyIs& operator >>(TyIs &,streamtest::Link::Handle &)");
    CHECK(target.isNull());
    target = link;
    CHECK((readFailure("o", target).isEmpty() && target.isNull() && written(target) == "o"));
}

TEST_CASE("endlessly nested objects fail before they eat the stack")
{
    const std::string head = written(Handle_T<Link>(new Link)).substr(0, 6); // tag, class, empty name
    std::string chain;
    for (int i = 0; i < 1024; ++i)
        chain += head;
    Handle_T<Link> link;
    CHECK((readFailure(chain + "o", link).isEmpty() && written(link) == chain + "o"));

    Handle_T<Link> longer = new Link;
    longer->next = link;
    const String failure = L"streamtest::Link::Handle &) Error!";
    CHECK(failureOf([&] { written(longer); }) == L"TyOs& operator <<(TyOs &,const " + failure);
    for (int i = 0; i < 200; ++i)
        chain += chain.substr(0, 6 * 1024);
    CHECK(readFailure(chain, link) == L"TyIs& operator >>(TyIs &," + failure);
    CHECK(readFailure(head + "o", link).isEmpty()); // the depth is given back
}

TEST_CASE("a stream copies another to its end, or fails")
{
    constexpr int size = 20000;
    const auto check = [&](int copied, bool fails, void (*change)(FaultyIO & source, FaultyIO & target)) {
        const auto source = FaultyIO::create(std::string(size, 'x'));
        const auto target = FaultyIO::create();
        change(*source, *target);
        InputStream is(source);
        OutputStream os(target);
        const String failure = fails ? L"OutputStream& operator <<(OutputStream &,InputStream &)" : L"";
        CHECK(failureOf([&] { os << is; }) == failure);
        CHECK((target->bytes == std::string(static_cast<std::size_t>(copied), 'x')));
    };
    check(size, false, [](FaultyIO&, FaultyIO&) {});
    check(size, false, [](FaultyIO& source, FaultyIO&) { source.piece = 1; });
    check(size, false, [](FaultyIO& source, FaultyIO&) { source.emptyAnswers = 15; });
    check(10000, true, [](FaultyIO& source, FaultyIO&) { source.readsUntil = 10000; });
    check(0, true, [](FaultyIO& source, FaultyIO&) { source.claimed = -1; });
    check(size, true, [](FaultyIO& source, FaultyIO&) { source.claimed = 1; }); // and has none at the end
    check(9000, true, [](FaultyIO&, FaultyIO& target) { target.room = 9000; });
}

TEST_CASE("a clone is a deep copy of the dynamic class, or null with the reason in the log")
{
    const RecordingLog log;
    const Handle_T<Link> link = new NamedLink;
    link->name = L"first";
    link->next = new Link;
    const Handle_T<Link> clone = Handle_T<Unknown>(link)->clone();
    CHECK((written(clone) == written(link) && clone != link));
    CHECK(log.lines().empty());
    const Handle_T<Link> unregistered = new streamtest::UnregisteredLink;
    CHECK(unregistered->clone().isNull());
    CHECK(log.errors() == std::vector<String>{L"Call rtCreateInstance(Link) error! typeid(" +
                                              typeName(typeid(streamtest::UnregisteredLink)) + L")"});
    log.clear();
    link->next = link; // without an end
    CHECK((link->clone().isNull() &&
           log.count(RecordingLog::Level::Error, L"TyOs& operator <<(TyOs &,const ") == 1));
    link->next.setNull();
}
