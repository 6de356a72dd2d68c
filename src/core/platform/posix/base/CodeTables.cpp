#include "CodeTables.h"

#include "SingleBytePages.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <mutex>

#include <iconv.h>

namespace orvi::platform {
namespace {

enum class State { Unbuilt, Built, Missing };

/** A page whose tables iconv fills. */
struct PageSlot {
    int codePage;
    const char* charset; // iconv's name
    std::atomic<State> state{State::Unbuilt};
    std::atomic<unsigned int> attempts{0};
};

constinit PageSlot doubleBytePages[] = {
    {932, "CP932"},
    {936, "CP936"},
    {949, "CP949"},
    {950, "CP950"},
};

// Zeroed storage takes no memory before it is touched, needs no clean-up and outlives every user.
constinit SingleByteTables singleBytes[singleBytePageCount] = {};
constinit std::atomic<bool> areSingleBytesBuilt[singleBytePageCount] = {};
constinit DoubleByteTables doubleBytes[std::size(doubleBytePages)] = {};

constinit std::mutex buildLock; // innermost: nothing is called under it that takes another lock

/** A form of Unicode with two bytes a unit, by iconv's name. Without memory or descriptors iconv may take a
    conversion for one that does not exist, and remember that by the names for good: each attempt takes the
    next form. That cannot help where the first use of iconv in the process lacked them: its configuration is
    read once. */
struct UnicodeForm {
    const char* name;
    unsigned int low; // the place of the low byte
};

constexpr UnicodeForm unicodeForms[] = {{"UTF-16LE", 0}, {"UCS-2LE", 0}, {"UTF-16BE", 1}, {"UCS-2BE", 1}};

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

    /** Converts one character on its own; false for one that is not there. The final call matters: without it glibc may keep a
        character back, to compose it with a mark that may follow. */
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
    Charset(const char* name, const UnicodeForm& form)
        : _low(form.low)
        , _decoder(form.name, name)
        , _encoder(name, form.name)
    {}

    bool isOpen() const { return _decoder.isOpen() && _encoder.isOpen(); }

    /** True only for a character of one unit, none of our pages has others. */
    bool decode(const unsigned char* source, std::size_t size, wchar_t& unit)
    {
        unsigned char target[8];
        std::size_t length = 0;
        if (!_decoder.convert(source, size, target, length) || length != 2)
            return false;
        unit = wchar_t(target[_low] | target[1 - _low] << 8);
        return true;
    }

    /** The byte or the two bytes as a number, 0 if there are none. */
    std::uint16_t encode(wchar_t unit)
    {
        unsigned char source[2];
        source[_low] = static_cast<unsigned char>(unit);
        source[1 - _low] = static_cast<unsigned char>(unit >> 8);
        unsigned char target[8];
        std::size_t length = 0;
        if (!_encoder.convert(source, sizeof source, target, length))
            return 0;
        if (length == 1)
            return target[0];
        return length == 2 ? std::uint16_t(target[0] << 8 | target[1]) : std::uint16_t(0);
    }

private:
    const unsigned int _low;
    Iconv _decoder;
    Iconv _encoder;
};

/** Notes that `code` stands for `unit`. The codes table is the units table turned round, so that nothing is
    encodable but what decodes to the same. Where several codes stand for one unit, iconv knows which is
    usual. */
void addCode(Charset& charset, std::uint16_t (&codes)[65536], wchar_t unit, std::uint16_t code)
{
    std::uint16_t& entry = codes[unit];
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

/** Whether a byte begins a pair, be that defined or not. iconv counts only those that begin a defined one, and
    would let the second half of others pass for a character of its own. */
bool isLead(int codePage, unsigned byte)
{
    constexpr int japanese = 932;
    if (codePage == japanese)
        return (byte > 0x80 && byte < 0xA0) || (byte > 0xDF && byte < 0xFD);
    return byte > 0x80 && byte < 0xFF;
}

void set(DoubleByteTables& tables, std::uint16_t code, wchar_t unit)
{
    tables.units[tables.rows[code >> 8]][code & 0xFF] = unit;
    tables.codes[unit] = code;
}

/** Puts right where iconv lacks a character, or takes another one of two codes for the usual one. */
void correct(int codePage, DoubleByteTables& tables)
{
    constexpr struct {
        int codePage;
        std::uint16_t code;
        wchar_t unit;
    } rows[] = {
        {950, 0xF9F9, 0x2550},
        {950, 0xF9E9, 0x255E},
        {950, 0xF9EB, 0x2561},
        {950, 0xF9EA, 0x256A},
    };
    for (const auto& row : rows) {
        if (row.codePage == codePage)
            set(tables, row.code, row.unit);
    }
}

/** No page has a character twice, so that the order of the bytes does not matter. */
void build(const SingleBytePage& page, SingleByteTables& tables)
{
    for (unsigned i = 0; i < 256; ++i) {
        const wchar_t unit = i < 0x80 ? wchar_t(i) : page.upperUnits[i - 0x80];
        const bool isDefined = i == 0 || unit != 0;
        tables.units[i] = isDefined ? unit : L'?';
        if (isDefined)
            tables.codes[unit] = std::uint8_t(i);
    }
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

State buildOnce(PageSlot& slot, DoubleByteTables& tables)
{
    // Opened before the lock is taken: it loads a module, under the loader's lock, and a thread that holds
    // that one may be in a static initialiser that wants this page.
    const unsigned int attempt = slot.attempts.fetch_add(1, std::memory_order_relaxed);
    Charset charset(slot.charset, unicodeForms[attempt % std::size(unicodeForms)]);
    const std::lock_guard lock(buildLock);
    // What cannot be opened may lack memory or descriptors, whatever errno says: the next question tries again.
    if (slot.state == State::Unbuilt && charset.isOpen())
        slot.state = build(slot.codePage, charset, tables) ? State::Built : State::Missing;
    return slot.state;
}

void buildOnce(int index)
{
    const std::lock_guard lock(buildLock);
    if (areSingleBytesBuilt[index])
        return;
    build(singleBytePages[index], singleBytes[index]);
    areSingleBytesBuilt[index].store(true, std::memory_order_release);
}

} // namespace

const SingleByteTables* singleByteTables(int codePage)
{
    for (int i = 0; i < singleBytePageCount; ++i) {
        if (singleBytePages[i].codePage != codePage)
            continue;
        if (!areSingleBytesBuilt[i].load(std::memory_order_acquire))
            buildOnce(i);
        return &singleBytes[i];
    }
    return nullptr;
}

const DoubleByteTables* doubleByteTables(int codePage)
{
    for (std::size_t i = 0; i < std::size(doubleBytePages); ++i) {
        PageSlot& slot = doubleBytePages[i];
        if (slot.codePage != codePage)
            continue;
        State state = slot.state.load(std::memory_order_acquire);
        if (state == State::Unbuilt)
            state = buildOnce(slot, doubleBytes[i]);
        return state == State::Built ? &doubleBytes[i] : nullptr;
    }
    return nullptr;
}

bool isDoubleBytePage(int codePage)
{
    return std::any_of(std::begin(doubleBytePages), std::end(doubleBytePages),
                       [codePage](const PageSlot& slot) { return slot.codePage == codePage; });
}

} // namespace orvi::platform
