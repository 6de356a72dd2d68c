#pragma once
#include "platform/base/CodePage.h"
#include "platform/base/Format.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace orvi::platform {

/** A bounded target that goes on counting when it is full. */
template <class T>
class FormatSink {
public:
    FormatSink(T* target, std::size_t capacity)
        : _target(target)
        , _capacity(capacity)
    {}

    std::size_t total() const { return _lacksTables ? formatLacksTables : _total; }

    void put(const T* text, std::size_t size)
    {
        if (const std::size_t count = std::min(size, room()))
            std::memcpy(cursor(), text, count * sizeof(T));
        _total += size;
    }

    void putAscii(std::string_view text)
    {
        const std::size_t count = std::min(text.size(), room());
        for (std::size_t i = 0; i < count; ++i)
            cursor()[i] = T(text[i]);
        _total += text.size();
    }

    void fill(char character, std::size_t size)
    {
        std::fill_n(cursor(), std::min(size, room()), T(character));
        _total += size;
    }

    /** Puts text of the other width, which stands in `codePage` on the narrow side. */
    template <class Source>
    void convert(const Source* text, std::size_t size, int codePage)
    {
        const std::size_t free = room();
        const std::size_t result = converted(text, size, codePage, cursor(), free);
        if (result > free && free != 0) {
            // No part of a character is written: make sure that something is.
            std::fill_n(cursor(), free, T());
            converted(text, size, codePage, cursor(), free);
        }
        _total += result;
    }

    /** The number of elements that `convert` would put. */
    std::size_t measure(const wchar_t* text, std::size_t size, int codePage)
    {
        return converted(text, size, codePage, static_cast<T*>(nullptr), 0);
    }
    std::size_t measure(const char* text, std::size_t size, int codePage)
    {
        return converted(text, size, codePage, static_cast<T*>(nullptr), 0);
    }

private:
    std::size_t room() const { return _total < _capacity ? _capacity - _total : 0; }
    T* cursor() const { return _target + std::min(_total, _capacity); }

    std::size_t converted(const wchar_t* text, std::size_t size, int codePage, T* target,
                          std::size_t capacity)
    {
        char* const bytes = reinterpret_cast<char*>(target);
        return known(wideToCodePage(codePage, text, size, bytes, capacity));
    }

    std::size_t converted(const char* text, std::size_t size, int codePage, T* target, std::size_t capacity)
    {
        return known(codePageToWide(codePage, text, size, target, capacity));
    }

    /** Text in a code page that does not exist comes out empty. */
    std::size_t known(std::ptrdiff_t result)
    {
        _lacksTables = _lacksTables || result == codePageLacksTables;
        return result < 0 ? 0 : std::size_t(result);
    }

    T* _target;
    std::size_t _capacity;
    std::size_t _total = 0;
    bool _lacksTables = false;
};

} // namespace orvi::platform
