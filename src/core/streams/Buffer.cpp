#include <orvi/core/Buffer.h>

#include <orvi/core/Base64.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Stream.h>
#include <orvi/core/Varint.h>

#include "base/HexText.h"
#include "base/StringAccess.h"

#include <cstdlib>
#include <cstring>

namespace orvi {

Buffer::~Buffer() { std::free(_data); }

Buffer& Buffer::operator=(const Buffer& other) noexcept
{
    if (this != &other && setBufferSize(other._size) > 0)
        __memcpy__(_data, other._data, static_cast<unsigned int>(_size));
    return *this;
}

int Buffer::setBufferSize(int size) noexcept
{
    if (size == _size)
        return size;
    std::free(_data);
    _data = size > 0 ? std::malloc(static_cast<std::size_t>(size)) : nullptr;
    _size = _data != nullptr ? size : 0;
    return _size;
}

bool Buffer::operator==(const Buffer& other) const noexcept
{
    if (_size != other._size)
        return false;
    return _data == other._data || std::memcmp(_data, other._data, static_cast<std::size_t>(_size)) == 0;
}

String Buffer::convertToHex() const
{
    const auto size = static_cast<std::size_t>(_size);
    const auto* bytes = static_cast<const unsigned char*>(_data);
    String text;
    wchar_t* room = StringAccess<wchar_t>::prepare(text, size * 2);
    if (room == nullptr)
        return text;
    for (std::size_t i = 0; i < size; ++i)
        room = text::printHexByte(room, bytes[i]);
    return text;
}

bool Buffer::convertFromHex(const String& text)
{
    const int length = text.getLength();
    if (length % 2 != 0 || setBufferSize(length / 2) != length / 2)
        return false;
    const wchar_t* digits = text.getBuffer();
    auto* bytes = static_cast<unsigned char*>(_data);
    for (int i = 0; i < _size; ++i, digits += 2) {
        if (!text::parseHexByte(digits, bytes[i]))
            return false;
    }
    return true;
}

String Buffer::convertToBase64() const { return base64_encode(_data, _size); }

bool Buffer::convertFromBase64(const String& text)
{
    if (text.getLength() % 4 != 0) { // one of up to 3 characters would pass below as no bytes
        setBufferSize(0);
        return false;
    }
    const int size = base64_datasize(text);
    return setBufferSize(size) == size && base64_decode(text, _data, _size) == size;
}

InputStream& operator>>(InputStream& is, Buffer& buffer)
{
    Varint length;
    is >> length;
    const int size = length;
    const bool hasRoom = buffer.setBufferSize(size) == size;
    if (!hasRoom || (size > 0 && is.read(buffer._data, size) != size)) {
        buffer.setBufferSize(0);
        THROW_EXCEPTION(-1, L"TyIs& operator >>(TyIs &, Buffer &)");
    }
    return is;
}

OutputStream& operator<<(OutputStream& os, const Buffer& buffer)
{
    const int size = buffer._size;
    os << Varint(size);
    if (size > 0 && os.write(buffer._data, size) != size)
        THROW_EXCEPTION(-1, L"TyOs& operator <<(TyOs &, const Buffer &)");
    return os;
}

} // namespace orvi
