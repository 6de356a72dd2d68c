#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <utility>

namespace orvi {

class InputStream;
class OutputStream;

/** An owned block of bytes of exactly the size asked for. It has no block exactly when its size is 0.

    Nothing throws but the stream operators: when memory runs out the Buffer is empty. Fresh contents are
    undefined. */
class ORVI_API Buffer {
public:
    /** Zero and negative sizes give an empty Buffer. */
    explicit Buffer(int size = 0) noexcept { setBufferSize(size); }
    Buffer(const Buffer& other) noexcept { *this = other; }
    Buffer(Buffer&& other) noexcept
        : _size(std::exchange(other._size, 0))
        , _data(std::exchange(other._data, nullptr))
    {}
    ~Buffer();

    Buffer& operator=(const Buffer& other) noexcept;
    Buffer& operator=(Buffer&& other) noexcept
    {
        std::swap(_size, other._size);
        std::swap(_data, other._data);
        return *this;
    }

    int getBufferSize() const noexcept { return _size; }
    void* getBuffer() noexcept { return _data; }
    const void* getBuffer() const noexcept { return _data; }
    operator void*() noexcept { return _data; }
    operator const void*() const noexcept { return _data; }

    /** Takes a new block, without the old contents, unless the size is the present one. Gives the new size: 0
        without memory and for a non-positive size. */
    int setBufferSize(int size) noexcept;

    bool operator==(const Buffer& other) const noexcept;

    /** Two lower-case digits for a byte. */
    String convertToHex() const;
    /** Takes digits of either case. False, changing nothing, for an odd number of characters; false at a
        character that is no digit, with the size set and the bytes in front of it decoded. */
    bool convertFromHex(const String& text);
    String convertToBase64() const;
    /** False when the text is not all Base64; the old contents are lost then too. */
    bool convertFromBase64(const String& text);

    /** As a Varint byte count and the bytes. The count is believed before the bytes are there: the block is
        taken first, untouched. On a failure behind the count the target is empty. */
    friend ORVI_API InputStream& operator>>(InputStream& is, Buffer& buffer);
    friend ORVI_API OutputStream& operator<<(OutputStream& os, const Buffer& buffer);

private:
    int _size = 0;
    void* _data = nullptr;
};

} // namespace orvi
