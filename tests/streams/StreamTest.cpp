#include "TextPrinting.h"

#include <orvi/core/Buffer.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Stream.h>
#include <orvi/core/Varint.h>

#include "FaultyIO.h"

#include <cstdint>
#include <limits>
#include <random>

using namespace orvi;

namespace streamtest {

/** A chain of objects on a stream. */
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

} // namespace streamtest

namespace {

using streamtest::Link;
using streamtest::NamedLink;

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
    CAPTURE(hex);
    CHECK(hexOf(written(value)) == hex);
    const auto io = ByteIO::create(bytesOf(hex));
    InputStream is(io);
    T copy{};
    is >> copy;
    CHECK((copy == value));
    CHECK(io->available() == 0);
}

template <class T>
void checkScalarFailures(const String& type)
{
    T value{};
    CHECK(readFailure(std::string(sizeof(T) - 1, 'x'), value) ==
          L"orvi::InputStream& operator>>(orvi::InputStream &is," + type + L" &i)");
    const auto full = FaultyIO::create();
    full->room = static_cast<int>(sizeof(T)) - 1;
    OutputStream os(full);
    CHECK(failureOf([&] { os << value; }) ==
          L"orvi::OutputStream& operator<<(orvi::OutputStream &os, const " + type + L" &i)");
}

Buffer bufferOf(const std::string& bytes)
{
    Buffer buffer(static_cast<int>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), static_cast<char*>(buffer.getBuffer()));
    return buffer;
}

/** One value of every kind. */
struct Document {
    char character = 'c';
    std::uint16_t small = 0x1234;
    double number = 2.5;
    Varint length = 300;
    Varint64 big = std::numeric_limits<std::int64_t>::min();
    String_T<char> utf8 = "abc";
    String wide = L"\u0416!";
    String_T<unsigned char> ansi = reinterpret_cast<const unsigned char*>("caf\xE9");
    Buffer block = bufferOf("12345");
    Handle_T<Link> object;
    Handle_T<Link> none;

    static Document sample()
    {
        Document document;
        document.object = new Link;
        document.object->name = L"first";
        document.object->next = new NamedLink;
        return document;
    }
    void write(OutputStream& os) const
    {
        os << character << small << number << length << big << utf8 << wide << ansi << block << object
           << none;
    }
    void read(InputStream& is)
    {
        is >> character >> small >> number >> length >> big >> utf8 >> wide >> ansi >> block >> object >>
            none;
    }
    std::string bytes() const
    {
        const auto io = ByteIO::create();
        OutputStream os(io);
        write(os);
        return io->bytes;
    }
};

template <class T>
concept Streamable = requires(OutputStream& os, InputStream& is, T& value)
{
    os << value;
    is >> value;
};
template <class T>
concept Writable = requires(OutputStream& os, const T& value)
{
    os << value;
};

static_assert(Streamable<char> && Streamable<std::int64_t> && Streamable<long long> && Streamable<float>);
static_assert(Streamable<String> && Streamable<Buffer> && Streamable<Varint64> && Streamable<Handle_T<Link>>);
static_assert(!Writable<bool> && !Writable<wchar_t> && !Writable<const wchar_t*> && !Writable<wchar_t[2]>);
static_assert(!Writable<const char*> && !Writable<void*> && !Writable<Link*> && !Writable<std::nullptr_t>);

} // namespace

TEST_CASE("values have one form on a stream")
{
    checkForm('A', "41");
    checkForm<std::int8_t>(-2, "FE");
    checkForm<std::uint8_t>(0x80, "80");
    checkForm<std::int16_t>(-2, "FE FF");
    checkForm<std::uint16_t>(0x1234, "34 12");
    checkForm<std::int32_t>(-2, "FE FF FF FF");
    checkForm<std::uint32_t>(0x12345678, "78 56 34 12");
    checkForm<std::int64_t>(-2, "FE FF FF FF FF FF FF FF");
    checkForm<std::uint64_t>(0x0102030405060708, "08 07 06 05 04 03 02 01");
    checkForm(1.0F, "00 00 80 3F");
    checkForm(1.0, "00 00 00 00 00 00 F0 3F");

    checkForm(String_T<char>("abc"), "06 61 62 63");
    checkForm(String_T<char>(), "00");
    checkForm(String(), "00");
    checkForm(String(L"\u0416"), "04 D0 96");
    checkForm(String_T<unsigned char>(), "00");
    checkForm(String_T<unsigned char>(0xE9), "04 C3 A9");
    String_T<char> withNul;
    withNul.setBuffer("a\0b", 3);
    CHECK(hexOf(written(withNul)) == "06 61 00 62");

    checkForm(Buffer(), "00");
    checkForm(bufferOf("\xDE\xAD"), "04 DE AD");
}

TEST_CASE("a Varint is short for numbers close to 0")
{
    const struct {
        std::int64_t value;
        const char* hex;
    } rows[] = {
        {0, "00"},
        {-1, "01"},
        {1, "02"},
        {-2, "03"},
        {63, "7E"},
        {-64, "7F"},
        {64, "80 01"},
        {-65, "81 01"},
        {300, "D8 04"},
        {2147483647, "FE FF FF FF 0F"},
        {-2147483648, "FF FF FF FF 0F"},
        {std::numeric_limits<std::int64_t>::max(), "FE FF FF FF FF FF FF FF FF 01"},
        {std::numeric_limits<std::int64_t>::min(), "FF FF FF FF FF FF FF FF FF 01"},
    };
    for (const auto& row : rows) {
        checkForm(Varint64(row.value), row.hex);
        if (row.value == static_cast<std::int32_t>(row.value))
            checkForm(Varint(static_cast<std::int32_t>(row.value)), row.hex);
    }
}

TEST_CASE("a Varint reads what others may write")
{
    const struct {
        const char* what;
        const char* hex;
        std::int32_t expected;
    } rows[] = {
        {"not minimal", "80 00", 0},
        {"not minimal, up to the limit", "82 80 80 80 00", 1},
        {"bits beyond 32", "FF FF FF FF 1F", std::numeric_limits<std::int32_t>::min()},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        InputStream is(ByteIO::create(bytesOf(row.hex)));
        Varint value;
        is >> value;
        CHECK(value == row.expected);
    }
    InputStream is(ByteIO::create(bytesOf("80 80 80 80 80 80 80 80 80 7E")));
    Varint64 big(7);
    is >> big;
    CHECK(big == 0);
}

TEST_CASE("a Varint that is too long or cut short fails")
{
    const auto io = ByteIO::create(bytesOf("FF FF FF FF FF 01"));
    InputStream is(io);
    Varint value(7);
    CHECK(failureOf([&] { is >> value; }) == L"Tyis& operator >>(Tyis &is, Varint_T &v)");
    CHECK(io->position == 5);
    CHECK(value == 7);

    Varint64 big(7);
    CHECK(readFailure(std::string(11, '\x80'), big) == L"Tyis& operator >>(Tyis &is, Varint_T &v)");
    CHECK(readFailure(std::string(9, '\x80'), big) ==
          L"orvi::InputStream& operator>>(orvi::InputStream &is,uint8_t &i)");

    const auto full = FaultyIO::create();
    full->room = 1;
    OutputStream os(full);
    CHECK(failureOf([&] { os << Varint(64); }) == L"Tyos& operator <<(Tyos &os, const Varint_T &v)");
}

TEST_CASE("a failure of a number names its type")
{
    checkScalarFailures<char>(L"char");
    checkScalarFailures<std::int8_t>(L"int8_t");
    checkScalarFailures<std::uint8_t>(L"uint8_t");
    checkScalarFailures<std::int16_t>(L"int16_t");
    checkScalarFailures<std::uint16_t>(L"uint16_t");
    checkScalarFailures<std::int32_t>(L"int32_t");
    checkScalarFailures<std::uint32_t>(L"uint32_t");
    checkScalarFailures<std::int64_t>(L"int64_t");
    checkScalarFailures<std::uint64_t>(L"uint64_t");
    checkScalarFailures<float>(L"float");
    checkScalarFailures<double>(L"double");
}

TEST_CASE("a string is read when all of it is there, or not at all")
{
    constexpr const wchar_t* failure = L"TyIs& operator >>(TyIs&, String&)";
    const auto checkUnchanged = [&](const std::string& bytes, std::size_t consumed) {
        CAPTURE(hexOf(bytes));
        const auto io = ByteIO::create(bytes);
        InputStream is(io);
        String wide = L"old";
        CHECK(failureOf([&] { is >> wide; }) == failure);
        CHECK(wide == L"old");
        CHECK(io->position == consumed);
        String_T<unsigned char> ansi(int('o'));
        CHECK(readFailure(bytes, ansi) == failure);
        CHECK(ansi == String_T<unsigned char>(int('o')));
    };
    checkUnchanged(bytesOf("08 61 62 63"), 1);
    checkUnchanged(bytesOf("01 61 62 63"), 1); // -1
    checkUnchanged(bytesOf("FE FF FF FF 0F 61"), 5);

    // A source that promises more than it has, once beyond what a block may have and once not.
    for (const char* hex : {"FE FF FF FF 0F 61", "80 80 80 80 08 61", "08 61 62 63"}) {
        const auto liar = FaultyIO::create(bytesOf(hex));
        liar->claimed = noLimit;
        InputStream is(liar);
        String_T<char> text = "old";
        CHECK(failureOf([&] { is >> text; }) == failure);
        CHECK(text == "old");
    }

    const auto full = FaultyIO::create();
    full->room = 3;
    OutputStream os(full);
    CHECK(failureOf([&] { os << String(L"abc"); }) == L"TyOs& operator <<(TyOs&, const String&)");
}

TEST_CASE("a Buffer that fails to arrive is empty")
{
    constexpr const wchar_t* failure = L"TyIs& operator >>(TyIs &, Buffer &)";
    const char* rows[] = {
        "01 61",             // a negative length
        "08 61 62 63",       // too short, of the target's size
        "0A 61 62 63",       // too short
        "80 80 80 80 08 61", // 1 GiB
    };
    for (const char* hex : rows) {
        CAPTURE(hex);
        Buffer buffer(4);
        CHECK(readFailure(bytesOf(hex), buffer) == failure);
        CHECK(buffer.getBufferSize() == 0);
        CHECK(buffer.getBuffer() == nullptr);
    }
    const auto full = FaultyIO::create();
    full->room = 2;
    OutputStream os(full);
    CHECK(failureOf([&] { os << Buffer(2); }) == L"TyOs& operator <<(TyOs &, const Buffer &)");
}

TEST_CASE("objects travel with their class")
{
    Handle_T<Link> link = new NamedLink;
    link->name = L"a";
    const std::string bytes = written(link);
    CHECK(bytes.substr(0, 1) == "O");
    CHECK(bytes.substr(5) == bytesOf("02 61 6F"));

    InputStream is(ByteIO::create(bytes));
    Handle_T<Link> copy;
    is >> copy;
    REQUIRE(!copy.isNull());
    CHECK(copy->getClassName() == L"NamedLink");
    CHECK(copy->name == L"a");
    CHECK(copy->next.isNull());

    Handle_T<NamedLink> narrow;
    const std::string plain = written(Handle_T<Link>(new Link));
    CHECK(readFailure(plain, narrow) == L"TyIs& operator >>(TyIs &,streamtest::NamedLink::Handle &)");
    CHECK(narrow.isNull());
}

TEST_CASE("a handle on a stream may be null, unknown or broken")
{
    const auto held = Handle_T<Link>(new Link);
    Handle_T<Link> target = held;
    CHECK(hexOf(written(Handle_T<Link>())) == "6F");
    CHECK(readFailure("o", target).isEmpty());
    CHECK(target.isNull());
    CHECK(held->getReferenceCount() == 1);

    target = held;
    CHECK(readFailure("x", target) == L"TyIs& operator >>(TyIs &,streamtest::Link::Handle &) Error!");
    CHECK(readFailure(bytesOf("4F 01 02"), target) ==
          L"orvi::InputStream& operator>>(orvi::InputStream &is,uint32_t &i)");
    CHECK(target == held);
    CHECK(readFailure(bytesOf("4F 01 00 00 00"), target) ==
          L"TyIs& operator >>(TyIs &,streamtest::Link::Handle &)");
    CHECK(target.isNull());
}

TEST_CASE("endlessly nested objects fail before they eat the stack")
{
    const std::string head = written(Handle_T<Link>(new Link)).substr(0, 6); // tag, class, empty name
    std::string chain;
    for (int i = 0; i < 1024; ++i)
        chain += head;
    Handle_T<Link> link;
    CHECK(readFailure(chain + "o", link).isEmpty());
    CHECK(written(link) == chain + "o");

    Handle_T<Link> longer = new Link;
    longer->next = link;
    const String failure = L"streamtest::Link::Handle &) Error!";
    CHECK(failureOf([&] { written(longer); }) == L"TyOs& operator <<(TyOs &,const " + failure);
    for (int i = 0; i < 200; ++i)
        chain += chain.substr(0, 6 * 1024);
    CHECK(readFailure(chain, link) == L"TyIs& operator >>(TyIs &," + failure);
    CHECK(readFailure(head + "o", link).isEmpty()); // the depth is given back
}

TEST_CASE("a document cut short at any byte fails, reading and writing")
{
    const Document document = Document::sample();
    const std::string bytes = document.bytes();

    Document copy;
    InputStream is(ByteIO::create(bytes));
    copy.read(is);
    CHECK(copy.bytes() == bytes);

    for (std::size_t end = 0; end < bytes.size(); ++end) {
        CAPTURE(end);
        Document partial;
        InputStream cut(ByteIO::create(bytes.substr(0, end)));
        CHECK(!failureOf([&] { partial.read(cut); }).isEmpty());

        const auto failing = FaultyIO::create(bytes);
        failing->readsUntil = static_cast<int>(end);
        InputStream broken(failing);
        CHECK(!failureOf([&] { partial.read(broken); }).isEmpty());
        CHECK(failing->position <= end);

        const auto full = FaultyIO::create();
        full->room = static_cast<int>(end);
        OutputStream os(full);
        CHECK(!failureOf([&] { document.write(os); }).isEmpty());
        CHECK(full->bytes == bytes.substr(0, end));
    }
}

TEST_CASE("nothing is read behind a failure, and random bytes do no harm")
{
    const auto slow = FaultyIO::create(Document::sample().bytes());
    slow->piece = 1;
    InputStream is(slow);
    Document document;
    CHECK(failureOf([&] { document.read(is); }) ==
          L"orvi::InputStream& operator>>(orvi::InputStream &is,uint16_t &i)");
    CHECK(slow->reads == 2);

    std::mt19937 random(1);
    const std::string bytes = Document::sample().bytes();
    for (int i = 0; i < 5000; ++i) {
        std::string damaged = bytes;
        for (int j = 0; j < 3; ++j)
            damaged[random() % damaged.size()] = static_cast<char>(random() % 64); // lengths stay small
        InputStream source(ByteIO::create(damaged));
        failureOf([&] { document.read(source); });
    }
    CHECK(Document::sample().bytes() == bytes);
}

TEST_CASE("a stream copies another to its end")
{
    const std::string bytes(20000, 'x');
    const struct {
        const char* what;
        int piece;
        int emptyAnswers;
    } rows[] = {{"whole pieces", noLimit, 0}, {"single bytes", 1, 0}, {"a few empty answers", 5000, 15}};
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const auto source = FaultyIO::create(bytes);
        source->piece = row.piece;
        source->emptyAnswers = row.emptyAnswers;
        const auto target = ByteIO::create();
        InputStream is(source);
        OutputStream os(target);
        os << is;
        CHECK(target->bytes == bytes);
        CHECK(source->ByteIO::available() == 0);
    }
}

TEST_CASE("a stream that cannot be copied fails")
{
    const struct {
        const char* what;
        int readsUntil;
        int claimed;
        int room;
        std::size_t copied;
    } rows[] = {
        {"the source breaks", 10000, noLie, noLimit, 10000},
        {"the source cannot say", noLimit, -1, noLimit, 0},
        {"the source promises bytes and has none", noLimit, 1, noLimit, 20000},
        {"the output is full", noLimit, noLie, 9000, 9000},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const auto source = FaultyIO::create(std::string(20000, 'x'));
        source->readsUntil = row.readsUntil;
        source->claimed = row.claimed;
        const auto target = FaultyIO::create();
        target->room = row.room;
        InputStream is(source);
        OutputStream os(target);
        CHECK(failureOf([&] { os << is; }) == L"OutputStream& operator <<(OutputStream &,InputStream &)");
        CHECK(target->bytes.size() == row.copied);
    }
}

TEST_CASE("a stream takes its source over and gives it away")
{
    const auto io = ByteIO::create("abcdef");
    InputStream is;
    CHECK(is.isNull());
    CHECK(is.attach(io));
    CHECK(io->getReferenceCount() == 2);
    char text[4] = {};
    CHECK(is.peek(text, 2) == 2);
    CHECK(is.available() == 6);
    CHECK(is.read(text));
    CHECK(std::string(text, 4) == "abcd");
    CHECK(!is.read(text)); // two bytes are left
    CHECK(static_cast<Input*>(is.detach()) == io);
    CHECK(is.isNull());
    CHECK(io->getReferenceCount() == 1);

    OutputStream os;
    CHECK(os.attach(io));
    CHECK(os.write(std::uint16_t(0x6868)));
    CHECK(!os.detach().isNull());
    CHECK(os.isNull());
    CHECK(io->bytes == "abcdefhh");
}
