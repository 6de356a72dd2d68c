#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Unknown.h>

#include <concepts>
#include <type_traits>
#include <typeinfo>

namespace orvi {

/** A source of bytes.

    Results: above 0, that many bytes were delivered, maybe fewer than asked for; 0, nothing now, and a later
    call may succeed; negative, a failure. No operation throws and none waits. Not for two threads at once,
    unless the object says so. */
class ORVI_API Input : public virtual Unknown {
public:
    /** How many bytes `read` can give now. */
    virtual int available() const = 0;
    /** Copies up to `size` bytes and leaves them unread. */
    virtual int peek(void* buffer, int size) const = 0;
    /** Copies up to `size` bytes and consumes them. */
    virtual int read(void* buffer, int size) = 0;
};

/** A sink of bytes. */
class ORVI_API Output : public virtual Unknown {
public:
    /** Takes up to `size` bytes; gives the number taken, negative on failure. Neither throws nor waits. */
    virtual int write(const void* data, int size) = 0;
};

/** Source and sink at once. */
class ORVI_API IO : public Input, public Output {};

/** Typed reading over an Input, through the operators below: a small value that holds a reference on its
    source. Copies share the source. A null stream must not be read. One thread at a time. */
class ORVI_API InputStream {
public:
    InputStream() noexcept = default;
    InputStream(Input* input) noexcept
        : _input(input)
    {}
    InputStream(const InputStream&) = default;
    InputStream& operator=(const InputStream&) = default;
    virtual ~InputStream() = default;

    /** Replaces the source; always true. */
    bool attach(Input* input);
    /** Gives the source away. */
    Unknown::Handle_T<Input> detach();
    bool isNull() const noexcept { return _input.isNull(); }

    int available() const { return _input->available(); }
    virtual int peek(void* buffer, int size) const;
    int read(void* buffer, int size) { return _input->read(buffer, size); }
    /** Reads the raw bytes of a plain value with one `read`; false when not all of it came. */
    template <class T>
    bool read(T& value)
    {
        static_assert(std::is_trivially_copyable_v<T>,
                      "only plain values travel as raw bytes: use operator>>");
        return read(&value, static_cast<int>(sizeof value)) == static_cast<int>(sizeof value);
    }

private:
    Unknown::Handle_T<Input> _input;
};

/** Typed writing over an Output; as InputStream. */
class ORVI_API OutputStream {
public:
    OutputStream() noexcept = default;
    OutputStream(Output* output) noexcept
        : _output(output)
    {}

    bool attach(Output* output);
    Unknown::Handle_T<Output> detach();
    bool isNull() const noexcept { return _output.isNull(); }

    int write(const void* data, int size) { return _output->write(data, size); }
    template <class T>
    bool write(const T& value)
    {
        static_assert(std::is_trivially_copyable_v<T>,
                      "only plain values travel as raw bytes: use operator<<");
        return write(&value, static_cast<int>(sizeof value)) == static_cast<int>(sizeof value);
    }

private:
    Unknown::Handle_T<Output> _output;
};

// The binary format. It has no header, no type tags and no version: reader and writer agree on the order of
// the values. Every operator below throws Exception when bytes are missing or refused, or make no sense;
// nothing is put back, and what was half read is lost. Buffer.h, Varint.h and MemoryStream.h have the
// operators of their classes.

/** The untyped halves of the operators; not for callers. */
namespace binary {

// The pointers keep out what would only convert, such as bool, wchar_t and enumerations.
constexpr const wchar_t* nameOf(const char*) { return L"char"; }
constexpr const wchar_t* nameOf(const signed char*) { return L"int8_t"; }
constexpr const wchar_t* nameOf(const unsigned char*) { return L"uint8_t"; }
constexpr const wchar_t* nameOf(const short*) { return L"int16_t"; }
constexpr const wchar_t* nameOf(const unsigned short*) { return L"uint16_t"; }
constexpr const wchar_t* nameOf(const int*) { return L"int32_t"; }
constexpr const wchar_t* nameOf(const unsigned int*) { return L"uint32_t"; }
constexpr const wchar_t* nameOf(const long*) { return L"int64_t"; }
constexpr const wchar_t* nameOf(const unsigned long*) { return L"uint64_t"; }
constexpr const wchar_t* nameOf(const long long*) { return L"long long"; }
constexpr const wchar_t* nameOf(const unsigned long long*) { return L"unsigned long long"; }
constexpr const wchar_t* nameOf(const float*) { return L"float"; }
constexpr const wchar_t* nameOf(const double*) { return L"double"; }

[[noreturn]] ORVI_API void refuseRead(const wchar_t* type);
[[noreturn]] ORVI_API void refuseWrite(const wchar_t* type);
ORVI_API void readScalar(InputStream& is, void* value, int size, const wchar_t* type);
ORVI_API void writeScalar(OutputStream& os, const void* value, int size, const wchar_t* type);

/** Reads what stands in front of an object's body: false for a null handle, else true and a new object, which
    is null when nobody registered its class. */
ORVI_API bool readObjectHead(InputStream& is, Unknown::Handle_T<Unknown>& object, const std::type_info& type);
ORVI_API void readObjectBody(InputStream& is, Unknown* object, const std::type_info& type);
ORVI_API void writeObject(OutputStream& os, const Unknown* object, const std::type_info& type);

} // namespace binary

/** A number that travels as the raw bytes that it has in memory, little-endian. For bool and wchar_t, choose
    one of these types yourself; for a number that is mostly small, see Varint. */
template <class T>
concept StreamScalar = std::same_as<T, std::remove_cv_t<T>> && requires(const T* value)
{
    binary::nameOf(value);
};

template <StreamScalar T>
InputStream& operator>>(InputStream& is, T& value)
{
    binary::readScalar(is, &value, static_cast<int>(sizeof value), binary::nameOf(&value));
    return is;
}

template <StreamScalar T>
OutputStream& operator<<(OutputStream& os, const T& value)
{
    binary::writeScalar(os, &value, static_cast<int>(sizeof value), binary::nameOf(&value));
    return os;
}

/** A string of any width travels as a Varint byte count and UTF-8, so it may be read back at another width.
    It is read only when all of it has arrived, and the target keeps its text on a failure. NULs inside the
    text travel only from String_T<char> to String_T<char>; other widths end at the first one. */
template <class T>
InputStream& operator>>(InputStream& is, String_T<T>& text);
template <class T>
OutputStream& operator<<(OutputStream& os, const String_T<T>& text);

extern template ORVI_API InputStream& operator>>(InputStream& is, String_T<wchar_t>& text);
extern template ORVI_API InputStream& operator>>(InputStream& is, String_T<char>& text);
extern template ORVI_API InputStream& operator>>(InputStream& is, String_T<unsigned char>& text);
extern template ORVI_API OutputStream& operator<<(OutputStream& os, const String_T<wchar_t>& text);
extern template ORVI_API OutputStream& operator<<(OutputStream& os, const String_T<char>& text);
extern template ORVI_API OutputStream& operator<<(OutputStream& os, const String_T<unsigned char>& text);

/** Replaces the handle by a new object of the class that the stream names, which must be registered and be a
    T, and lets it read itself by importFrom; or by null. A body that fails leaves the new object half read in
    the handle, an unknown class leaves null. Handles inside the bodies of handles may nest 1024 deep, reading
    and writing. */
template <class T>
InputStream& operator>>(InputStream& is, Unknown::Handle_T<T>& handle)
{
    Unknown::Handle_T<Unknown> object;
    if (!binary::readObjectHead(is, object, typeid(T))) {
        handle.setNull();
        return is;
    }
    handle = Unknown::Handle_T<T>(object);
    binary::readObjectBody(is, handle, typeid(T));
    return is;
}

/** Writes the class id of the object's dynamic class and lets it write itself by exportTo. */
template <class T>
OutputStream& operator<<(OutputStream& os, const Unknown::Handle_T<T>& handle)
{
    binary::writeObject(os, handle, typeid(T));
    return os;
}

/** Moves everything that the source has to the output. A source that announces bytes and keeps delivering
    none fails. */
ORVI_API OutputStream& operator<<(OutputStream& os, InputStream& is);

} // namespace orvi
