#include "CodeTables.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <mutex>

#include <iconv.h>

namespace orvi::platform {
namespace {

enum class State { Unbuilt, Built, Missing };

struct PageSlot {
    int codePage;
    const char* charset; // iconv's name
    std::atomic<State> state{State::Unbuilt};
};

constinit PageSlot singleBytePages[] = {
    {437, "CP437"},        {850, "CP850"},        {852, "CP852"},         {866, "CP866"},
    {874, "CP874"},        {1250, "CP1250"},      {1251, "CP1251"},       {1252, "CP1252"},
    {1253, "CP1253"},      {1254, "CP1254"},      {1255, "CP1255"},       {1256, "CP1256"},
    {1257, "CP1257"},      {1258, "CP1258"},      {20127, "US-ASCII"},    {20866, "KOI8-R"},
    {28591, "ISO-8859-1"}, {28592, "ISO-8859-2"}, {28605, "ISO-8859-15"},
};
constinit PageSlot doubleBytePages[] = {
    {932, "CP932"},
    {936, "CP936"},
    {949, "CP949"},
    {950, "CP950"},
};

// Zeroed storage takes no memory before it is touched, needs no clean-up and outlives every user.
constinit SingleByteTables singleBytes[std::size(singleBytePages)] = {};
constinit DoubleByteTables doubleBytes[std::size(doubleBytePages)] = {};

constinit std::mutex buildLock; // innermost: nothing is called under it that takes another lock

class Iconv {
public:
    Iconv(const char* to, const char* from)
        : _handle(iconv_open(to, from))
    {}
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;
    ~Iconv()
    {
        if (isOpen())
            iconv_close(_handle);
    }

    bool isOpen() const { return _handle != iconv_t(-1); }

    /** Converts one character on its own; false for one that is not there. The final call matters: without it glibc keeps a letter of 1255 or
        1258 back, to compose it with a mark that may follow. */
    bool convert(const unsigned char* source, std::size_t size, unsigned char (&target)[8],
                 std::size_t& length)
    {
        char* in = reinterpret_cast<char*>(const_cast<unsigned char*>(source));
        char* out = reinterpret_cast<char*>(target);
        std::size_t room = sizeof target;
        iconv(_handle, nullptr, nullptr, nullptr, nullptr);
        // A positive result counts characters that came out as something else.
        if (iconv(_handle, &in, &size, &out, &room) != 0 ||
            iconv(_handle, nullptr, nullptr, &out, &room) == std::size_t(-1))
            return false;
        length = sizeof target - room;
        return true;
    }

private:
    iconv_t _handle;
};

/** The two directions of one character set. */
class Charset {
public:
    explicit Charset(const char* name)
        : _decoder("UTF-16LE", name)
        , _encoder(name, "UTF-16LE")
    {}

    bool isOpen() const { return _decoder.isOpen() && _encoder.isOpen(); }

    /** True only for a character of one unit, none of our pages has others. */
    bool decode(const unsigned char* source, std::size_t size, wchar_t& unit)
    {
        unsigned char target[8];
        std::size_t length = 0;
        if (!_decoder.convert(source, size, target, length) || length != 2)
            return false;
        unit = wchar_t(target[0] | target[1] << 8);
        return true;
    }

    /** The byte or the two bytes as a number, 0 if there are none. */
    std::uint16_t encode(wchar_t unit)
    {
        const unsigned char source[2] = {static_cast<unsigned char>(unit),
                                         static_cast<unsigned char>(unit >> 8)};
        unsigned char target[8];
        std::size_t length = 0;
        if (!_encoder.convert(source, sizeof source, target, length))
            return 0;
        if (length == 1)
            return target[0];
        return length == 2 ? std::uint16_t(target[0] << 8 | target[1]) : std::uint16_t(0);
    }

private:
    Iconv _decoder;
    Iconv _encoder;
};

/** Notes that `code` stands for `unit`. The codes table is the units table turned round, so that nothing is
    encodable but what decodes to the same. Where several codes stand for one unit, iconv knows which is
    usual. */
template <class Code>
void addCode(Charset& charset, Code (&codes)[65536], wchar_t unit, Code code)
{
    Code& entry = codes[unit];
    if (entry == 0 || charset.encode(unit) == code)
        entry = code;
}

bool extendsAscii(const wchar_t (&units)[256])
{
    for (wchar_t unit = 0; unit < 0x80; ++unit)
        if (units[unit] != unit)
            return false;
    return true;
}

/** Windows has the control character of the same number where one of its own pages has nothing else. */
bool isControl(int codePage, unsigned code)
{
    const bool isWindowsPage = codePage == 874 || (codePage >= 1250 && codePage <= 1258);
    return isWindowsPage && code >= 0x80 && code < 0xA0;
}

/** Whether a byte begins a pair, be that defined or not. iconv counts only those that begin a defined one, and
    would let the second half of others pass for a character of its own. */
bool isLead(int codePage, unsigned byte)
{
    constexpr int japanese = 932;
    if (codePage == japanese)
        return (byte > 0x80 && byte < 0xA0) || (byte > 0xDF && byte < 0xFD);
    return byte > 0x80 && byte < 0xFF;
}

void set(SingleByteTables& tables, std::uint16_t code, wchar_t unit)
{
    tables.units[code] = unit;
    tables.codes[unit] = std::uint8_t(code);
}
void set(DoubleByteTables& tables, std::uint16_t code, wchar_t unit)
{
    tables.units[tables.rows[code >> 8]][code & 0xFF] = unit;
    tables.codes[unit] = code;
}

/** Puts right where iconv lacks a character, or takes another one of two codes for the usual one. */
template <class Tables>
void correct(int codePage, Tables& tables)
{
    constexpr struct {
        int codePage;
        std::uint16_t code;
        wchar_t unit;
    } rows[] = {
        {950, 0xF9F9, 0x2550}, {950, 0xF9E9, 0x255E}, {950, 0xF9EB, 0x2561},
        {950, 0xF9EA, 0x256A}, {1255, 0xCA, 0x05BA},
    };
    for (const auto& row : rows) {
        if (row.codePage == codePage)
            set(tables, row.code, row.unit);
    }
}

bool build(int codePage, Charset& charset, SingleByteTables& tables)
{
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = static_cast<unsigned char>(i);
        wchar_t unit = byte;
        if (!charset.decode(&byte, 1, unit) && !isControl(codePage, byte)) {
            tables.units[byte] = L'?';
            continue;
        }
        tables.units[byte] = unit;
        addCode(charset, tables.codes, unit, byte);
    }
    correct(codePage, tables);
    return extendsAscii(tables.units);
}

void buildRow(Charset& charset, DoubleByteTables& tables, unsigned char lead)
{
    wchar_t(&row)[256] = tables.units[tables.rows[lead]];
    for (unsigned i = 0; i < 256; ++i) {
        const unsigned char pair[2] = {lead, static_cast<unsigned char>(i)};
        row[i] = L'?';
        wchar_t unit;
        if (!charset.decode(pair, 2, unit))
            continue;
        row[i] = unit;
        addCode(charset, tables.codes, unit, std::uint16_t(pair[0] << 8 | pair[1]));
    }
}

bool build(int codePage, Charset& charset, DoubleByteTables& tables)
{
    std::uint8_t leads = 0;
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = static_cast<unsigned char>(i);
        tables.units[0][byte] = L'?';
        wchar_t unit;
        if (isLead(codePage, byte)) {
            tables.rows[byte] = ++leads;
            buildRow(charset, tables, byte);
        } else if (charset.decode(&byte, 1, unit)) {
            tables.units[0][byte] = unit;
            addCode(charset, tables.codes, unit, std::uint16_t(byte));
        }
    }
    correct(codePage, tables);
    return extendsAscii(tables.units[0]);
}

template <class Tables>
State buildOnce(PageSlot& slot, Tables& tables)
{
    // Opened before the lock is taken: it loads a module, under the loader's lock, and a thread that holds
    // that one may be in a static initialiser that wants this page.
    Charset charset(slot.charset);
    if (!charset.isOpen()) {
        if (errno != EINVAL)
            return State::Missing; // out of memory or of descriptors: the next question tries again
        slot.state = State::Missing;
        return State::Missing;
    }
    const std::lock_guard lock(buildLock);
    if (slot.state == State::Unbuilt)
        slot.state = build(slot.codePage, charset, tables) ? State::Built : State::Missing;
    return slot.state;
}

template <class Tables, std::size_t count>
const Tables* find(int codePage, PageSlot (&slots)[count], Tables (&tables)[count])
{
    for (std::size_t i = 0; i < count; ++i) {
        if (slots[i].codePage != codePage)
            continue;
        State state = slots[i].state.load(std::memory_order_acquire);
        if (state == State::Unbuilt)
            state = buildOnce(slots[i], tables[i]);
        return state == State::Built ? &tables[i] : nullptr;
    }
    return nullptr;
}

} // namespace

const SingleByteTables* singleByteTables(int codePage)
{
    return find(codePage, singleBytePages, singleBytes);
}
const DoubleByteTables* doubleByteTables(int codePage)
{
    return find(codePage, doubleBytePages, doubleBytes);
}

} // namespace orvi::platform
