#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <compare>
#include <cstdint>

namespace orvi {

/** The 6 bytes at the end of a Uuid. In one that was made here they are random and the same for the whole
    process, with the multicast bit set, so that they are never the address of a network card. */
struct ORVI_API uuid_node_t {
    static constexpr int textLength = 12;

    /** 12 lower-case digits; `buffer` has room for them and a terminator. Always true. */
    bool convertToString(wchar_t* buffer) const;
    String convertToString() const;

    /** Reads 12 digits of either case and ignores what follows them; nothing behind the first other character
        is touched. False, with the node all zero, for any other text. */
    bool convertFromString(const wchar_t* text);
    /** The same for a text of 12 characters exactly. */
    bool convertFromString(const String& text);

    /** -1, 0 or 1: by the first four bytes as a signed number of this machine, then by the last two. */
    int compare(const uuid_node_t& other) const;

    friend bool operator==(const uuid_node_t&, const uuid_node_t&) = default;
    friend std::strong_ordering operator<=>(const uuid_node_t& a, const uuid_node_t& b)
    {
        return a.compare(b) <=> 0;
    }

    std::uint8_t bytes[6] = {};
};

/** A 128-bit identifier in the manner of RFC 4122; all zero unless it is made.

    A plain value. Its fields have the byte order of the machine, and its text prints the bytes as they stand in
    memory: on a little-endian machine the first three groups read reversed, compared with the RFC's text. */
struct ORVI_API Uuid {
    static constexpr int textLength = 36;
    enum ECreate { CREATE };

    constexpr Uuid() noexcept = default;
    /** `Uuid id(Uuid::CREATE);` makes a fresh one. */
    inline explicit Uuid(ECreate);
    static Uuid create() { return Uuid(CREATE); }

    /** "67452301-ab89-efcd-8001-0123456789ab". */
    String convertToString() const;

    friend bool operator==(const Uuid&, const Uuid&) = default;
    /** The order of uuid_compare. */
    friend inline std::strong_ordering operator<=>(const Uuid& a, const Uuid& b);

    std::uint32_t time_low = 0;
    std::uint16_t time_mid = 0;
    std::uint16_t time_hi_and_version = 0;
    std::uint8_t clock_seq_hi_and_reserved = 0;
    std::uint8_t clock_seq_low = 0;
    uuid_node_t node;
};
static_assert(sizeof(uuid_node_t) == 6 && sizeof(Uuid) == 16);

/** Makes a uuid of time and node (version 1) and gives 1. Any thread; also before and after the library's own
    statics. No two are the same: up to 1,025 are made in a millisecond, the next one waits for its end, and so
    does everybody behind it. On one thread the time of each is above that of the one before, unless the system's
    clock was put back: then the clock sequence is another. */
ORVI_API int uuid_create(Uuid& uuid);

/** Makes a uuid of a name (version 3): the same in every process for the same name space and name. The fields
    are those of the RFC; a negative size counts as 0. */
ORVI_API void uuid_create_md5_from_name(Uuid& out, const Uuid& nameSpace, const void* name, int size);

/** -1, 0 or 1: by the 16 bytes as four signed 32-bit numbers of this machine, in order. */
ORVI_API int uuid_compare(const Uuid& a, const Uuid& b);

/** Writes 36 characters, with lower-case digits, and a terminator. Always true. */
ORVI_API bool uuid_convertToString(const Uuid& uuid, wchar_t* buffer);
ORVI_API String uuid_convertToString(const Uuid& uuid);

/** Reads that form, with digits of either case, and ignores what follows the 36th character; nothing behind the
    first character that is wrong is touched. False, with the uuid all zero, for any other text. */
ORVI_API bool uuid_convertFromString(Uuid& uuid, const wchar_t* text);
/** The same for a text of 36 characters exactly; the zero uuid for any other. */
ORVI_API Uuid uuid_convertFromString(const String& text);

inline Uuid::Uuid(ECreate) { uuid_create(*this); }

inline std::strong_ordering operator<=>(const Uuid& a, const Uuid& b) { return uuid_compare(a, b) <=> 0; }

} // namespace orvi
