#pragma once
#include <orvi/core/Export.h>

#include <cstdint>

namespace orvi {

class InputStream;
class OutputStream;

/** A number that travels in 1 to 5 bytes, fewer the closer it is to 0: zig-zag, then groups of 7 bits from
    the lowest on, with bit 7 set on every byte but the last. For the call:

        os << Varint(count);
        is >> length; // a Varint

    The operators throw Exception; a number that fails to arrive leaves the target as it was. */
class Varint {
public:
    Varint(std::int32_t value = 0) noexcept
        : _value(value)
    {}
    operator std::int32_t() const noexcept { return _value; }

    // Found through a Varint only: a plain number on a stream never becomes one.
    friend ORVI_API InputStream& operator>>(InputStream& is, Varint& value);
    friend ORVI_API OutputStream& operator<<(OutputStream& os, const Varint& value);

private:
    std::int32_t _value;
};

/** The same for 64 bits, in 1 to 10 bytes. What fits a Varint has the same bytes. */
class Varint64 {
public:
    Varint64(std::int64_t value = 0) noexcept
        : _value(value)
    {}
    operator std::int64_t() const noexcept { return _value; }

    friend ORVI_API InputStream& operator>>(InputStream& is, Varint64& value);
    friend ORVI_API OutputStream& operator<<(OutputStream& os, const Varint64& value);

private:
    std::int64_t _value;
};

} // namespace orvi
