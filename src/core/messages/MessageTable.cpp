#include <orvi/core/MessageTable.h>

#include <orvi/core/Buffer.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Time.h>
#include <orvi/core/Varint.h>

#include <limits>

namespace orvi::messaging {

void readMember(InputStream& is, bool& target)
{
    unsigned char byte = 0;
    is >> byte;
    target = byte != 0;
}

void writeMember(OutputStream& os, bool source) { os << static_cast<unsigned char>(source ? 1 : 0); }

void readMember(InputStream& is, Time& target)
{
    long long value = 0;
    is >> value;
    target.setValue(value);
}

void writeMember(OutputStream& os, const Time& source) { os << source.getValue(); }

void readMember(InputStream& is, TimeSpan& target)
{
    long long value = 0;
    is >> value;
    target.setValue(value);
}

void writeMember(OutputStream& os, const TimeSpan& source) { os << source.getValue(); }

void readMember(InputStream& is, Buffer& target)
{
    constexpr const wchar_t* failure = L"TyIs& operator >>(TyIs &, Buffer &)";
    Varint size;
    is >> size;
    if (size < 0 || size > is.available() || target.setBufferSize(size) != size ||
        (size > 0 && is.read(target.getBuffer(), size) != size)) {
        target.setBufferSize(0);
        THROW_EXCEPTION(-1, failure);
    }
}

void writeMember(OutputStream& os, const Buffer& source) { os << source; }

void readRaw(InputStream& is, void* target, int size, const std::type_info& type)
{
    if (is.read(target, size) != size)
        binary::refuseRead(typeName(type));
}

void writeRaw(OutputStream& os, const void* source, int size, const std::type_info& type)
{
    if (os.write(source, size) != size)
        binary::refuseWrite(typeName(type));
}

int readCount(InputStream& is)
{
    Varint count;
    is >> count;
    if (count < 0 || count > is.available())
        THROW_EXCEPTION(-1, L"TyIs& operator >>(TyIs &, vector &)");
    return count;
}

void writeCount(OutputStream& os, std::size_t count)
{
    if (count > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        THROW_EXCEPTION(-1, L"TyOs& operator <<(TyOs &, const vector &)");
    os << Varint(static_cast<int>(count));
}

} // namespace orvi::messaging
