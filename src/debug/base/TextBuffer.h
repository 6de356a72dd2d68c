#pragma once
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <span>
#include <string_view>

namespace orvi::debug {

/** Writes a text into an array, whose end cuts it. The text is complete at any time, with its NUL. */
class TextBuffer {
public:
    explicit TextBuffer(std::span<char> space)
        : _space(space)
    {
        clear();
    }

    const char* text() const { return _space.data(); }

    void clear()
    {
        _length = 0;
        _space[0] = '\0';
    }
    void append(std::string_view text)
    {
        _length += text.copy(_space.data() + _length, _space.size() - 1 - _length);
        _space[_length] = '\0';
    }
    [[gnu::format(printf, 2, 3)]] void format(const char* format, ...)
    {
        std::va_list arguments;
        va_start(arguments, format);
        const std::size_t space = _space.size() - _length;
        const int wanted = std::vsnprintf(_space.data() + _length, space, format, arguments);
        va_end(arguments);
        if (wanted > 0)
            _length +=
                static_cast<std::size_t>(wanted) < space ? static_cast<std::size_t>(wanted) : space - 1;
    }

private:
    std::span<char> _space;
    std::size_t _length = 0;
};

} // namespace orvi::debug
