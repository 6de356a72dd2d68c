#include <orvi/core/Mtbl.h>

namespace orvi {

Void& readMtbl(Void& stream, Void& object, const Mtbl* table)
{
    auto* bytes = reinterpret_cast<unsigned char*>(&object);
    for (const Mtbl* row = table; row->offset != mtblEnd.offset; ++row)
        row->read(stream, *reinterpret_cast<Void*>(bytes + row->offset));
    return stream;
}

Void& writeMtbl(Void& stream, const Void& object, const Mtbl* table)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(&object);
    for (const Mtbl* row = table; row->offset != mtblEnd.offset; ++row)
        row->write(stream, *reinterpret_cast<const Void*>(bytes + row->offset));
    return stream;
}

} // namespace orvi
