#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/MessageTable.h>
#include <orvi/core/Stream.h>
#include <orvi/core/Unknown.h>

#include <cstddef>

namespace orvi {

/** A row of a member table: where a member lies in its object, and how it is read and written. A table is an array
    of rows with one of offset -1 behind the last. It suits plain structures; a message class lists its members by
    ORVI_DEFINE_MESSAGE.

        struct Place { int floor; String room; };
        const Mtbl placeTable[] = {
            mtblRow<int>(offsetof(Place, floor)),
            mtblRow<String>(offsetof(Place, room)),
            mtblEnd,
        };

        writeMtbl(stream, place, placeTable);  */
struct Mtbl {
    int offset;
    Void& (*read)(Void& stream, Void& member);        // an InputStream; the result is dropped
    Void& (*write)(Void& stream, const Void& member); // an OutputStream
};

inline constexpr Mtbl mtblEnd{-1, nullptr, nullptr};

/** The row of a member of type T, which travels as a member of a message does. */
template <class T>
constexpr Mtbl mtblRow(std::size_t offset)
{
    static_assert(messaging::checkBodyForm<T>());
    return {static_cast<int>(offset),
            [](Void& stream, Void& member) -> Void& {
                messaging::readMember(reinterpret_cast<InputStream&>(stream), reinterpret_cast<T&>(member));
                return stream;
            },
            [](Void& stream, const Void& member) -> Void& {
                messaging::writeMember(reinterpret_cast<OutputStream&>(stream),
                                       reinterpret_cast<const T&>(member));
                return stream;
            }};
}

/** Calls the rows' functions in the order of the table, with the stream and the member's address; gives the
    stream. What they throw passes through, with the members in front of it read or written. */
ORVI_API Void& readMtbl(Void& stream, Void& object, const Mtbl* table);
ORVI_API Void& writeMtbl(Void& stream, const Void& object, const Mtbl* table);

template <class T>
InputStream& readMtbl(InputStream& stream, T& object, const Mtbl* table)
{
    readMtbl(reinterpret_cast<Void&>(stream), reinterpret_cast<Void&>(object), table);
    return stream;
}
template <class T>
OutputStream& writeMtbl(OutputStream& stream, const T& object, const Mtbl* table)
{
    writeMtbl(reinterpret_cast<Void&>(stream), reinterpret_cast<const Void&>(object), table);
    return stream;
}

} // namespace orvi
