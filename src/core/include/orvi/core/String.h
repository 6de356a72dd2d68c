#pragma once
#include <orvi/core/Export.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <iosfwd>

namespace orvi {

template <class T>
struct StringAccess; // the library's own way to write straight into a fresh block

/** A reference-counted, copy-on-write, NUL-terminated text of the size of one pointer.

    Three widths, each with a fixed meaning: `String_T<wchar_t>` (`String`) holds UTF-16, `String_T<char>`
    UTF-8, `String_T<unsigned char>` text in the process-wide code page (see setCodePage).

    A block is exactly as large as its text: every change of size makes a new block, so build long texts in a
    buffer of your own and not by `+=`. Copies share the block. All empty strings share one.

    Positions are in *characters* (what stringCharLength steps over) or *elements* (one T); in String the two
    are the same. Positions beyond the text are taken as its end.

    Strings that share a block may live in different threads; one string object is for one thread at a time.
    No operation throws: when memory runs out, or a text would be larger than getBufferLength can tell, one line goes to
    Log::error, a new string is empty and a changed one keeps its text. */
template <class T>
class String_T {
public:
    String_T() noexcept
        : _text(emptyText())
    {}
    /** Null counts as the empty text. */
    String_T(const T* text);
    /** The first `count` characters of `text`, which may hold NULs; NULs at the end are dropped. */
    String_T(const T* text, int count);
    /** One character: a UTF-16 unit, or a code point encoded by charToString. 0 gives the empty string. */
    String_T(int ch);
    String_T(const String_T& other) noexcept
        : _text(other._text)
    {
        getData()->addReference();
    }
    String_T(String_T&& other) noexcept
        : _text(other._text)
    {
        other._text = emptyText();
    }
    ~String_T() { getData()->release(); }

    String_T& operator=(const T* text);
    String_T& operator=(const String_T& other) noexcept
    {
        other.getData()->addReference();
        attach(other.getData());
        return *this;
    }
    String_T& operator=(String_T&& other) noexcept
    {
        T* text = other._text;
        other._text = _text;
        _text = text;
        return *this;
    }

    const T* getBuffer() const noexcept { return _text; }
    operator const T*() const noexcept { return _text; }

    /** Size of the text in bytes, terminator included. */
    int getBufferLength() const noexcept { return static_cast<int>(getData()->bufferLength); }
    /** Length in characters. */
    int getLength() const noexcept
    {
        const int known = getData()->length.load(std::memory_order_relaxed);
        return known >= 0 ? known : countLength();
    }
    bool isEmpty() const noexcept { return getBufferLength() == static_cast<int>(sizeof(T)); }

    /** Replaces the text by `size` *bytes* at `data`, which may lie in this string's own text. */
    String_T& setBuffer(const T* data, int size);

    /** The character at `index` (in characters) as a code value; 0 beyond the text. */
    int operator[](int index) const noexcept;

    /** Looks for `needle` from the character `from` on. The result is in elements from the start, -1 when
        there is none; nothing is found in an empty string, an empty needle at once. */
    int find(const T* needle, int from = 0) const;
    int find(int ch, int from = 0) const;

    /** `count` characters from the character `from` on; a negative `count` means up to the end. */
    String_T getSubString(int from, int count) const;

    /** Inserts before the element `pos`; gives the new length in elements. */
    int insert(int pos, const String_T& text);
    int insert(int pos, const T* text);
    int insert(int pos, int ch);

    /** Removes every occurrence, left to right; gives their number. An empty needle occurs nowhere. */
    int remove(const T* needle);
    int remove(const String_T& needle) { return remove(needle._text); }
    int remove(int ch);

    /** Erases `count` elements from the element `pos` on; gives `count`. */
    int erase(int pos, int count);

    /** Replaces every occurrence, left to right, never in what it put in; gives their number. */
    int replace(const T* needle, const T* replacement);
    int replace(const T* needle, const String_T& replacement) { return replace(needle, replacement._text); }
    int replace(const String_T& needle, const T* replacement) { return replace(needle._text, replacement); }
    int replace(const String_T& needle, const String_T& replacement)
    {
        return replace(needle._text, replacement._text);
    }
    int replace(int ch, int replacement);

    /** Replaces the text by a formatted one, with the conventions of Windows' printf family: in a wide format
        `%s` takes wide text, `%S` and `%hs` UTF-8; in a narrow one `%s` takes narrow text, `%S` and `%ls`
        wide text; `%I64d`, upper-case `%p`, "." as decimal point in every locale. Gives the elements written.
        0 without memory. Arguments may lie in this string's own text. Pass `getBuffer()`, not a String, for `%s`. */
    int format(const T* format, ...);
    int vprintf(const T* format, std::va_list arguments);

    /** ASCII letters only, at every width. */
    String_T& toLowerCase();
    String_T& toUpperCase();

    /** Cut ASCII white space from the ends. */
    String_T& trim();
    String_T& trimLeft();
    String_T& trimRight();

    /** -1, 0 or 1, by elements as unsigned values up to the first NUL; null counts as empty. */
    int compare(const T* other) const noexcept;
    /** Negative, 0 or positive; ASCII letters compare as lower case. */
    int compareNoCase(const T* other) const noexcept;

    String_T operator+(const String_T& right) const;
    String_T operator+(const T* right) const;
    String_T& operator+=(const String_T& right);
    String_T& operator+=(const T* right);
    String_T& operator+=(int ch);

    // Both orders are spelt out: a missing one would silently compare or add pointers.
    friend bool operator==(const String_T& a, const String_T& b) noexcept
    {
        return a._text == b._text || (a.getBufferLength() == b.getBufferLength() && a.compare(b._text) == 0);
    }
    friend bool operator==(const String_T& a, const T* b) noexcept { return a.compare(b) == 0; }
    friend bool operator==(const T* a, const String_T& b) noexcept { return b.compare(a) == 0; }
    friend bool operator!=(const String_T& a, const String_T& b) noexcept { return !(a == b); }
    friend bool operator!=(const String_T& a, const T* b) noexcept { return a.compare(b) != 0; }
    friend bool operator!=(const T* a, const String_T& b) noexcept { return b.compare(a) != 0; }
    friend bool operator<(const String_T& a, const String_T& b) noexcept { return a.compare(b._text) < 0; }
    friend bool operator<(const String_T& a, const T* b) noexcept { return a.compare(b) < 0; }
    friend bool operator<(const T* a, const String_T& b) noexcept { return b.compare(a) > 0; }
    friend bool operator>(const String_T& a, const String_T& b) noexcept { return a.compare(b._text) > 0; }
    friend bool operator>(const String_T& a, const T* b) noexcept { return a.compare(b) > 0; }
    friend bool operator>(const T* a, const String_T& b) noexcept { return b.compare(a) < 0; }
    friend bool operator<=(const String_T& a, const String_T& b) noexcept { return a.compare(b._text) <= 0; }
    friend bool operator<=(const String_T& a, const T* b) noexcept { return a.compare(b) <= 0; }
    friend bool operator<=(const T* a, const String_T& b) noexcept { return b.compare(a) >= 0; }
    friend bool operator>=(const String_T& a, const String_T& b) noexcept { return a.compare(b._text) >= 0; }
    friend bool operator>=(const String_T& a, const T* b) noexcept { return a.compare(b) >= 0; }
    friend bool operator>=(const T* a, const String_T& b) noexcept { return b.compare(a) <= 0; }
    friend String_T operator+(const T* left, const String_T& right) { return join(left, right); }

private:
    friend struct StringAccess<T>;

    /** The header in front of the characters. A block with more than one reference is never written, but for
        the count of `length` on demand, which every thread computes alike. */
    struct StringData {
        static constexpr std::uint32_t immortal = 0x80000000; // the shared empty block, whose count stays

        std::uint32_t bufferLength;
        std::atomic<std::int32_t> length; // in characters; -1: not counted yet
        std::atomic<std::uint32_t> references;

        bool isShared() const noexcept { return references.load(std::memory_order_acquire) != 1; }
        void addReference() noexcept
        {
            // No thread pays for a cache line that all threads would share.
            if (references.load(std::memory_order_relaxed) != immortal)
                references.fetch_add(1, std::memory_order_relaxed);
        }
        void release() noexcept
        {
            if (references.load(std::memory_order_relaxed) != immortal &&
                references.fetch_sub(1, std::memory_order_acq_rel) == 1)
                destroy(this);
        }
    };
    struct EmptyBlock {
        StringData data;
        T terminator;
    };
    static EmptyBlock g_empty_;

    static T* emptyText() noexcept { return &g_empty_.terminator; }
    static T* textOf(StringData* data) noexcept { return reinterpret_cast<T*>(data + 1); }
    StringData* getData() const noexcept { return reinterpret_cast<StringData*>(_text) - 1; }

    /** A block for `elements` and a terminator, which is set; null, and a line in the log, without memory. */
    static StringData* create(std::size_t elements);
    /** Writes the header and the terminator into memory of malloc that holds `elements` behind their place. */
    static StringData* adopt(void* memory, std::size_t elements);
    static void destroy(StringData* data) noexcept;

    /** Installs a block of which the caller owns a reference. */
    void attach(StringData* data) noexcept
    {
        StringData* old = getData();
        _text = textOf(data);
        old->release();
    }
    void attachEmpty() noexcept { attach(&g_empty_.data); }
    /** Makes the block this string's own; false without memory. */
    bool fork();
    int countLength() const noexcept;
    int elementCount() const noexcept { return static_cast<int>(getData()->bufferLength / sizeof(T)) - 1; }
    bool assign(const T* text, std::size_t elements);
    static String_T join(const T* left, const String_T& right);
    static String_T join(const T* left, std::size_t leftSize, const T* right, std::size_t rightSize);
    String_T append(const T* right, std::size_t elements) const;
    String_T& extend(const T* right, std::size_t elements);
    void shiftCase(T first, T last, int distance);
    String_T& cut(const T* begin, const T* end);

    T* _text; // never null; the header lies directly in front
};

extern template class ORVI_API String_T<wchar_t>;
extern template class ORVI_API String_T<char>;
extern template class ORVI_API String_T<unsigned char>;

using String = String_T<wchar_t>;

/** Writes the text as UTF-8. */
ORVI_API std::ostream& operator<<(std::ostream& stream, const String& text);

/** How many elements the code value `ch` takes at the width T; for `unsigned char` in the current code page.
 */
template <class T>
int charLength(int ch);
template <>
inline int charLength<wchar_t>(int)
{
    return 1;
}
template <>
inline int charLength<char>(int ch)
{
    return (ch & 0xff80) == 0 ? 1 : (ch & 0xf800) != 0 ? 3 : 2;
}
template <>
ORVI_API int charLength<unsigned char>(int ch);

/** How many elements the character at `p` takes. UTF-8 is stepped in characters of up to three bytes. In the
    code page's width a byte with its top bit set always counts as the first of two. */
inline int stringCharLength(const wchar_t*) { return 1; }
ORVI_API int stringCharLength(const char* p);
inline int stringCharLength(const unsigned char* p) { return (*p & 0x80) != 0 ? 2 : 1; }

/** Decodes the character at `p` into `ch` and returns the pointer behind it, never beyond the terminator. */
inline const wchar_t* stringChar(const wchar_t* p, int& ch)
{
    ch = *p;
    return p + 1;
}
ORVI_API const char* stringChar(const char* p, int& ch);
ORVI_API const unsigned char* stringChar(const unsigned char* p, int& ch);

/** Characters up to the terminator. */
ORVI_API int stringLength(const wchar_t* p);
ORVI_API int stringLength(const char* p);
ORVI_API int stringLength(const unsigned char* p);

/** Encodes `ch` and a terminator into `buffer`, which has room for 4 elements; gives the elements without the
    terminator. 0 gives the empty text. */
inline int charToString(wchar_t* buffer, int ch)
{
    buffer[0] = static_cast<wchar_t>(ch);
    buffer[1] = 0;
    return buffer[0] != 0 ? 1 : 0;
}
ORVI_API int charToString(char* buffer, int ch);
ORVI_API int charToString(unsigned char* buffer, int ch);

/** The library's bulk copy and fill, with the results of memcpy and memset. They choose their implementation
    at the first call, which happens when the library is loaded. */
extern ORVI_API void* (*__memcpy__)(void* target, const void* source, unsigned int size);
extern ORVI_API void* (*__memset__)(void* target, int value, unsigned int size);

/** Does nothing and returns 0: a call for static initialisers that need one. */
ORVI_API int nothing(...);

} // namespace orvi
