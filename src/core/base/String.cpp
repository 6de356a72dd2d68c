#include <orvi/core/String.h>

#include <orvi/core/Encoding.h>

#include "StringAccess.h"
#include "WholeTexts.h"
#include "WideText.h"
#include "platform/base/CodePage.h"
#include "platform/base/Format.h"
#include "platform/base/LargeBlock.h"

#include <cstdlib>
#include <limits>
#include <new>
#include <vector>

// g++ follows the shared empty block to a free that its count never lets happen.
#pragma GCC diagnostic ignored "-Wfree-nonheap-object"

namespace orvi {

namespace {

/** A character encoded for use as a needle or a text. */
template <class T>
struct Encoded {
    explicit Encoded(int ch)
        : size(charToString(text, ch))
    {}
    T text[4];
    int size;
};

/** Elements to step over one character within [p, end). A lead byte in front of the end counts alone. */
template <class T>
std::ptrdiff_t stepLength(const T* p, const T* end)
{
    const std::ptrdiff_t length = stringCharLength(p);
    return length < end - p ? length : end - p;
}

template <class T>
const T* advance(const T* p, const T* end, int characters)
{
    if (characters <= 0)
        return p;
    if constexpr (sizeof(T) > 1)
        return characters < end - p ? p + characters : end;
    for (; characters > 0 && p < end; --characters)
        p += stepLength(p, end);
    return p;
}

/** Finds a text in NUL-terminated ones, in linear time also where the needle repeats itself. */
template <class T>
class Needle {
public:
    explicit Needle(const T* text)
        : _text(text)
        , _size(text != nullptr ? text::length(text) : 0)
    {
        if (_size > longNeedle)
            prepare();
    }
    std::size_t size() const { return _size; }

    /** The next occurrence at or behind `p`; null when there is none. */
    const T* find(const T* p) const { return _borders.empty() ? findShort(p) : findLong(p); }

    std::size_t count(const T* p) const
    {
        std::size_t hits = 0;
        for (; _size > 0 && (p = find(p)) != nullptr; p += _size)
            ++hits;
        return hits;
    }

private:
    static constexpr std::size_t longNeedle = 16;

    const T* findShort(const T* p) const
    {
        for (; *p != 0; ++p) {
            std::size_t i = 0;
            while (i < _size && p[i] == _text[i])
                ++i;
            if (i == _size)
                return p;
        }
        return nullptr;
    }
    // The failure table of Knuth, Morris and Pratt: _borders[i] elements still match after a mismatch at i.
    void prepare()
    {
        try {
            _borders.assign(_size + 1, 0);
        } catch (const std::bad_alloc&) {
            return; // the plain way needs no memory
        }
        for (std::size_t i = 1, border = 0; i < _size; ++i) {
            while (border > 0 && _text[i] != _text[border])
                border = _borders[border];
            if (_text[i] == _text[border])
                ++border;
            _borders[i + 1] = border;
        }
    }
    const T* findLong(const T* p) const
    {
        for (std::size_t matched = 0; *p != 0; ++p) {
            while (matched > 0 && *p != _text[matched])
                matched = _borders[matched];
            if (*p == _text[matched] && ++matched == _size)
                return p + 1 - _size;
        }
        return nullptr;
    }

    const T* _text;
    std::size_t _size;
    std::vector<std::size_t> _borders;
};

template <class T>
void copyElements(T* target, const T* source, std::size_t count)
{
    __memcpy__(target, source, static_cast<unsigned int>(count * sizeof(T)));
}

/** Copies `text` with each hit of `needle` replaced, and everything behind the last one up to `end`. */
template <class T>
void copyReplaced(T* target, const T* text, const T* end, const Needle<T>& needle, const T* replacement,
                  std::size_t replacementSize)
{
    while (const T* hit = needle.find(text)) {
        const auto stretch = static_cast<std::size_t>(hit - text);
        copyElements(target, text, stretch);
        copyElements(target + stretch, replacement, replacementSize);
        target += stretch + replacementSize;
        text = hit + needle.size();
    }
    copyElements(target, text, static_cast<std::size_t>(end - text));
}

} // namespace

template <class T>
constinit typename String_T<T>::EmptyBlock String_T<T>::g_empty_{
    {static_cast<std::uint32_t>(sizeof(T)), 0, StringData::immortal}, 0};

template <class T>
typename String_T<T>::StringData* String_T<T>::create(std::size_t elements)
{
    static_assert(sizeof(StringData) == 12, "the header lies directly in front of the characters");
    const std::size_t bytes = (elements + 1) * sizeof(T);
    // getBufferLength is an int: what it could not tell is not made.
    void* block = nullptr;
    if (bytes <= static_cast<std::size_t>(std::numeric_limits<int>::max()))
        block = std::malloc(sizeof(StringData) + bytes);
    if (block != nullptr && bytes >= platform::largeBlockBytes)
        platform::prepareLargeBlock(block, bytes);
    if (block == nullptr) {
        missText(sizeof(StringData) + bytes);
        return nullptr;
    }
    return adopt(block, elements);
}

template <class T>
typename String_T<T>::StringData* String_T<T>::adopt(void* memory, std::size_t elements)
{
    const auto bytes = static_cast<std::uint32_t>((elements + 1) * sizeof(T));
    const int length = sizeof(T) > 1 ? static_cast<int>(elements) : -1;
    auto* data = new (memory) StringData{bytes, length, 1};
    textOf(data)[elements] = 0;
    return data;
}

template <class T>
void String_T<T>::destroy(StringData* data) noexcept
{
    std::free(data); // NOLINT(clang-analyzer-unix.Malloc): as at the top of this file
}

template <class T>
int String_T<T>::countLength() const noexcept
{
    const int length = stringLength(_text);
    getData()->length.store(length, std::memory_order_relaxed);
    return length;
}

template <class T>
bool String_T<T>::fork()
{
    StringData* data = create(static_cast<std::size_t>(elementCount()));
    if (data == nullptr)
        return false;
    copyElements(textOf(data), _text, static_cast<std::size_t>(elementCount()));
    attach(data);
    return true;
}

template <class T>
bool String_T<T>::assign(const T* text, std::size_t elements)
{
    if (elements == 0) {
        attachEmpty();
        return true;
    }
    StringData* data = create(elements);
    if (data == nullptr)
        return false;
    copyElements(textOf(data), text, elements);
    attach(data);
    return true;
}

template <class T>
String_T<T>::String_T(const T* text)
    : String_T()
{
    if (text != nullptr)
        assign(text, text::length(text));
}

template <class T>
String_T<T>::String_T(const T* text, int count)
    : String_T()
{
    if (text == nullptr || count <= 0)
        return;
    const T* end = text;
    if constexpr (sizeof(T) > 1) {
        end += count;
    } else {
        for (; count > 0; --count)
            end += stringCharLength(end);
    }
    while (end > text && end[-1] == 0)
        --end;
    assign(text, static_cast<std::size_t>(end - text));
}

template <class T>
String_T<T>::String_T(int ch)
    : String_T()
{
    const Encoded<T> encoded(ch);
    assign(encoded.text, static_cast<std::size_t>(encoded.size));
}

template <class T>
String_T<T>& String_T<T>::operator=(const T* text)
{
    const std::size_t elements = text != nullptr ? text::length(text) : 0;
    if (elements > 0 && elements == static_cast<std::size_t>(elementCount()) && !getData()->isShared()) {
        if (text == _text)
            return *this;
        copyElements(_text, text, elements);
        if constexpr (sizeof(T) == 1)
            getData()->length.store(-1, std::memory_order_relaxed);
    } else {
        assign(text, elements);
    }
    return *this;
}

template <class T>
String_T<T>& String_T<T>::setBuffer(const T* source, int size)
{
    if (size < 1) {
        attachEmpty();
        return *this;
    }
    const auto bytes = static_cast<std::size_t>(size);
    const std::size_t elements = (bytes + sizeof(T) - 1) / sizeof(T);
    if (StringData* data = create(elements)) {
        T* text = textOf(data);
        text[elements - 1] = 0; // half of it may be left over
        __memcpy__(text, source, static_cast<unsigned int>(bytes));
        attach(data);
    }
    return *this;
}

template <class T>
int String_T<T>::operator[](int index) const noexcept
{
    const T* end = _text + elementCount();
    const T* p = advance<T>(_text, end, index);
    if (index < 0 || p >= end)
        return 0;
    int ch = 0;
    stringChar(p, ch);
    return ch;
}

template <class T>
int String_T<T>::find(const T* needle, int from) const
{
    if (isEmpty() || needle == nullptr)
        return -1;
    const T* end = _text + elementCount();
    const T* start = advance<T>(_text, end, from);
    if (*needle == 0)
        return static_cast<int>(start - _text);
    const T* hit = Needle<T>(needle).find(start);
    return hit != nullptr ? static_cast<int>(hit - _text) : -1;
}

template <class T>
int String_T<T>::find(int ch, int from) const
{
    if (isEmpty())
        return -1;
    const T* p = advance<T>(_text, _text + elementCount(), from);
    for (;;) {
        int found = 0;
        const T* next = stringChar(p, found);
        if (found == ch)
            return static_cast<int>(p - _text);
        if (*p == 0)
            return -1;
        p = next;
    }
}

template <class T>
String_T<T> String_T<T>::getSubString(int from, int count) const
{
    const int length = getLength();
    from = from < 0 ? 0 : from < length ? from : length;
    if (count < 0 || count > length - from)
        count = length - from;
    if (from == 0 && count == length)
        return *this;
    const T* end = _text + elementCount();
    return String_T(advance<T>(_text, end, from), count);
}

template <class T>
int String_T<T>::insert(int pos, const String_T& text)
{
    const int length = elementCount();
    const int added = text.elementCount();
    pos = pos < 0 ? 0 : pos < length ? pos : length;
    if (length + added == 0) {
        attachEmpty();
        return 0;
    }
    StringData* data = create(static_cast<std::size_t>(length) + static_cast<std::size_t>(added));
    if (data == nullptr)
        return length;
    T* target = textOf(data);
    copyElements(target, _text, static_cast<std::size_t>(pos));
    copyElements(target + pos, text._text, static_cast<std::size_t>(added));
    copyElements(target + pos + added, _text + pos, static_cast<std::size_t>(length - pos));
    attach(data);
    return length + added;
}

template <class T>
int String_T<T>::insert(int pos, const T* text)
{
    return insert(pos, String_T(text));
}

template <class T>
int String_T<T>::insert(int pos, int ch)
{
    return insert(pos, String_T(ch));
}

template <class T>
int String_T<T>::remove(const T* needle)
{
    return replace(needle, emptyText());
}

template <class T>
int String_T<T>::remove(int ch)
{
    return remove(Encoded<T>(ch).text);
}

template <class T>
int String_T<T>::erase(int pos, int count)
{
    if (count < 1)
        return count;
    const int length = elementCount();
    pos = pos < 0 ? 0 : pos < length ? pos : length;
    const int erased = count < length - pos ? count : length - pos;
    if (erased == length) {
        attachEmpty();
    } else if (StringData* data = create(static_cast<std::size_t>(length - erased))) {
        copyElements(textOf(data), _text, static_cast<std::size_t>(pos));
        copyElements(textOf(data) + pos, _text + pos + erased,
                     static_cast<std::size_t>(length - pos - erased));
        attach(data);
    }
    return count;
}

template <class T>
int String_T<T>::replace(const T* needleText, const T* replacement)
{
    const Needle<T> needle(needleText);
    const std::size_t hits = needle.count(_text);
    if (hits == 0)
        return 0;
    if (replacement == nullptr)
        replacement = emptyText();
    const std::size_t size = text::length(replacement);
    const T* end = _text + elementCount();
    const auto isOwn = [&](const T* text) { return text >= _text && text <= end; };
    if (size == needle.size() && !getData()->isShared() && !isOwn(needleText) && !isOwn(replacement)) {
        for (T* hit = _text; (hit = const_cast<T*>(needle.find(hit))) != nullptr; hit += size)
            copyElements(hit, replacement, size);
        if constexpr (sizeof(T) == 1)
            getData()->length.store(-1, std::memory_order_relaxed);
        return static_cast<int>(hits);
    }
    const std::size_t elements =
        static_cast<std::size_t>(elementCount()) - hits * needle.size() + hits * size;
    if (elements == 0) {
        attachEmpty();
    } else if (StringData* data = create(elements)) {
        copyReplaced(textOf(data), static_cast<const T*>(_text), end, needle, replacement, size);
        attach(data);
    } else {
        return 0;
    }
    return static_cast<int>(hits);
}

template <class T>
int String_T<T>::replace(int ch, int replacement)
{
    return replace(Encoded<T>(ch).text, Encoded<T>(replacement).text);
}

template <class T>
int String_T<T>::format(const T* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int written = vprintf(format, arguments);
    va_end(arguments);
    return written;
}

template <class T>
int String_T<T>::vprintf(const T* format, std::va_list arguments)
{
    constexpr std::size_t shortText = 256; // most texts need one pass
    T buffer[shortText];
    const std::size_t elements = platform::formatText(buffer, shortText, format, arguments);
    if (elements == platform::formatLacksTables) {
        missText(sizeof buffer);
        return 0;
    }
    if (elements <= shortText)
        return assign(buffer, elements) ? static_cast<int>(elements) : 0;
    if (StringData* data = create(elements)) {
        platform::formatText(textOf(data), elements, format, arguments);
        attach(data);
        return elementCount();
    }
    return 0;
}

template <class T>
void String_T<T>::shiftCase(T first, T last, int distance)
{
    const int length = elementCount();
    bool owned = false;
    for (int i = 0; i < length; ++i) {
        if constexpr (static_cast<T>(-1) > 0 && sizeof(T) == 1) {
            if ((_text[i] & 0x80) != 0) {
                ++i; // a trail byte may look like a letter
                continue;
            }
        }
        if (_text[i] < first || _text[i] > last)
            continue;
        if (!owned && getData()->isShared() && !fork())
            return;
        owned = true;
        _text[i] = static_cast<T>(_text[i] + distance);
    }
}

template <class T>
String_T<T>& String_T<T>::toLowerCase()
{
    shiftCase('A', 'Z', 'a' - 'A');
    return *this;
}

template <class T>
String_T<T>& String_T<T>::toUpperCase()
{
    shiftCase('a', 'z', 'A' - 'a');
    return *this;
}

template <class T>
String_T<T>& String_T<T>::cut(const T* begin, const T* end)
{
    if (begin == _text && end == _text + elementCount())
        return *this;
    return setBuffer(begin, static_cast<int>((end - begin) * static_cast<std::ptrdiff_t>(sizeof(T))));
}

namespace {

template <class T>
const T* skipSpace(const T* begin, const T* end)
{
    while (begin < end && text::isSpace(*begin))
        ++begin;
    return begin;
}

template <class T>
const T* skipSpaceBack(const T* begin, const T* end)
{
    while (begin < end && text::isSpace(end[-1]))
        --end;
    return end;
}

} // namespace

template <class T>
String_T<T>& String_T<T>::trim()
{
    const T* end = _text + elementCount();
    const T* begin = skipSpace<T>(_text, end);
    return cut(begin, skipSpaceBack(begin, end));
}

template <class T>
String_T<T>& String_T<T>::trimLeft()
{
    const T* end = _text + elementCount();
    return cut(skipSpace<T>(_text, end), end);
}

template <class T>
String_T<T>& String_T<T>::trimRight()
{
    return cut(_text, skipSpaceBack<T>(_text, _text + elementCount()));
}

template <class T>
int String_T<T>::compare(const T* other) const noexcept
{
    if (other == _text)
        return 0;
    return other != nullptr ? text::compare<T>(_text, other) : *_text != 0;
}

template <class T>
int String_T<T>::compareNoCase(const T* other) const noexcept
{
    return text::compareNoCase<T>(_text, other != nullptr ? other : emptyText());
}

template <class T>
String_T<T> String_T<T>::operator+(const String_T& right) const
{
    if (isEmpty())
        return right;
    return right.isEmpty() ? *this : append(right._text, static_cast<std::size_t>(right.elementCount()));
}

template <class T>
String_T<T> String_T<T>::operator+(const T* right) const
{
    if (right == nullptr || *right == 0)
        return *this;
    return isEmpty() ? String_T(right) : append(right, text::length(right));
}

template <class T>
String_T<T>& String_T<T>::operator+=(const String_T& right)
{
    if (isEmpty())
        return *this = right;
    return extend(right._text, static_cast<std::size_t>(right.elementCount()));
}

template <class T>
String_T<T>& String_T<T>::operator+=(const T* right)
{
    return right != nullptr ? extend(right, text::length(right)) : *this;
}

template <class T>
String_T<T>& String_T<T>::operator+=(int ch)
{
    const Encoded<T> encoded(ch);
    return extend(encoded.text, static_cast<std::size_t>(encoded.size));
}

template <class T>
String_T<T> String_T<T>::join(const T* left, const String_T& right)
{
    const std::size_t elements = left != nullptr ? text::length(left) : 0;
    if (elements == 0)
        return right;
    return join(left, elements, right._text, static_cast<std::size_t>(right.elementCount()));
}

template <class T>
String_T<T> String_T<T>::join(const T* left, std::size_t leftSize, const T* right, std::size_t rightSize)
{
    String_T result;
    if (StringData* data = create(leftSize + rightSize)) {
        copyElements(textOf(data), left, leftSize);
        copyElements(textOf(data) + leftSize, right, rightSize);
        result.attach(data);
    }
    return result;
}

template <class T>
String_T<T> String_T<T>::append(const T* right, std::size_t elements) const
{
    return join(_text, static_cast<std::size_t>(elementCount()), right, elements);
}

template <class T>
String_T<T>& String_T<T>::extend(const T* right, std::size_t elements)
{
    if (elements == 0)
        return *this;
    const auto own = static_cast<std::size_t>(elementCount());
    if (StringData* data = create(own + elements)) {
        copyElements(textOf(data), _text, own);
        copyElements(textOf(data) + own, right, elements);
        attach(data);
    }
    return *this;
}

template class String_T<wchar_t>;
template class String_T<char>;
template class String_T<unsigned char>;

int stringCharLength(const char* p)
{
    const auto isContinuation = [](char c) { return (c & 0xC0) == 0x80; };
    if ((p[0] & 0xF0) == 0xE0)
        return !isContinuation(p[1]) ? 1 : !isContinuation(p[2]) ? 2 : 3;
    if ((p[0] & 0xE0) == 0xC0)
        return isContinuation(p[1]) ? 2 : 1;
    return 1;
}

const char* stringChar(const char* p, int& ch)
{
    const int length = stringCharLength(p);
    if (length == 3)
        ch = ((p[0] & 0x0F) * 64 | (p[1] & 0x3F)) * 64 | (p[2] & 0x3F);
    else if (length == 2)
        ch = (p[0] & 0x1F) * 64 | (p[1] & 0x3F);
    else
        ch = p[0] & 0x7F;
    return p + length;
}

const unsigned char* stringChar(const unsigned char* p, int& ch)
{
    if (*p < 0x80) {
        ch = *p;
        return p + 1;
    }
    const std::size_t length = p[1] != 0 ? 2 : 1;
    wchar_t units[2] = {};
    const auto bytes = reinterpret_cast<const char*>(p);
    if (platform::codePageToWide(getCodePage(), bytes, length, units, 2) == platform::codePageLacksTables)
        missText(length);
    ch = units[0];
    return p + length;
}

int stringLength(const wchar_t* p) { return static_cast<int>(text::length(p)); }

int stringLength(const char* p)
{
    int length = 0;
    for (; *p != 0; p += stringCharLength(p))
        ++length;
    return length;
}

int stringLength(const unsigned char* p)
{
    int length = 0;
    for (; *p != 0; ++length)
        p += *p >= 0x80 && p[1] != 0 ? 2 : 1;
    return length;
}

int charToString(char* buffer, int ch)
{
    char* p = buffer;
    if ((ch & 0xff80) == 0) {
        *p = static_cast<char>(ch & 0x7F);
        p += *p != 0;
    } else if ((ch & 0xf800) == 0) {
        *p++ = static_cast<char>(0xC0 | (ch >> 6 & 0x1F));
        *p++ = static_cast<char>(0x80 | (ch & 0x3F));
    } else {
        *p++ = static_cast<char>(0xE0 | (ch >> 12 & 0x0F));
        *p++ = static_cast<char>(0x80 | (ch >> 6 & 0x3F));
        *p++ = static_cast<char>(0x80 | (ch & 0x3F));
    }
    *p = 0;
    return static_cast<int>(p - buffer);
}

int charToString(unsigned char* buffer, int ch)
{
    constexpr std::size_t mostBytes = 3;
    const auto unit = static_cast<wchar_t>(ch);
    char bytes[mostBytes];
    std::ptrdiff_t size = unit != 0 ? platform::wideToCodePage(getCodePage(), &unit, 1, bytes, mostBytes) : 0;
    if (size == platform::codePageLacksTables)
        missText(sizeof unit);
    if (size < 0 || size > static_cast<std::ptrdiff_t>(mostBytes))
        size = 0;
    std::memcpy(buffer, bytes, static_cast<std::size_t>(size));
    buffer[size] = 0;
    return static_cast<int>(size);
}

template <>
int charLength<unsigned char>(int ch)
{
    unsigned char buffer[4];
    return charToString(buffer, ch);
}

int nothing(...) { return 0; }

} // namespace orvi
