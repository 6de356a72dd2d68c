#include <orvi/core/Stream.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Varint.h>

#include "base/StringAccess.h"
#include "base/WideText.h"
#include "platform/base/CodePage.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace orvi {

namespace {

constexpr char objectTag = 'O';
constexpr char nullTag = 'o';
constexpr const wchar_t* readFailure = L"TyIs& operator >>(TyIs&, String&)";
constexpr const wchar_t* writeFailure = L"TyOs& operator <<(TyOs&, const String&)";
constexpr int shortTextBytes = 512; // a text of that size is converted without a block on the way

// Bodies call back into the operators: without a bound, a few bytes of input for each level would eat the
// stack.
constexpr int maxObjectDepth = 1024;
constinit thread_local int t_objectDepth = 0;

class ObjectLevel {
public:
    ObjectLevel() noexcept { ++t_objectDepth; }
    ~ObjectLevel() { --t_objectDepth; }
    ObjectLevel(const ObjectLevel&) = delete;
    ObjectLevel& operator=(const ObjectLevel&) = delete;
    bool isTooDeep() const noexcept { return t_objectDepth > maxObjectDepth; }
};

String formatted(const wchar_t* format, const wchar_t* type)
{
    String text;
    text.format(format, type);
    return text;
}

/** The number of bytes of a text; they are there. */
int readTextSize(InputStream& is)
{
    Varint length;
    is >> length;
    const int size = length;
    if (size < 0 || size > is.available())
        THROW_EXCEPTION(-1, readFailure);
    return size;
}

void skipBytes(InputStream& is, int size)
{
    char piece[shortTextBytes];
    while (size > 0) {
        const int count = is.read(piece, std::min(size, shortTextBytes));
        if (count <= 0)
            return;
        size -= count;
    }
}

void readBytes(InputStream& is, int size, String_T<char>& text)
{
    String_T<char> fresh;
    char* room = StringAccess<char>::prepare(fresh, static_cast<std::size_t>(size));
    if (room == nullptr)
        skipBytes(is, size); // without memory this text is lost, but not what stands behind it
    if (room == nullptr || (size > 0 && is.read(room, size) != size))
        THROW_EXCEPTION(-1, readFailure);
    text = std::move(fresh);
}

void readText(InputStream& is, String_T<char>& text) { readBytes(is, readTextSize(is), text); }

/** Reads a text of at most shortTextBytes without a block on the way. */
void readShortText(InputStream& is, int size, String& text)
{
    char bytes[shortTextBytes];
    if (size > 0 && is.read(bytes, size) != size)
        THROW_EXCEPTION(-1, readFailure);
    wchar_t units[shortTextBytes]; // a byte makes one unit at most
    const std::ptrdiff_t length = platform::codePageToWide(
        platform::utf8CodePage, bytes, strnlen(bytes, static_cast<std::size_t>(size)), units, shortTextBytes);
    if (!StringAccess<wchar_t>::assign(text, units, static_cast<std::size_t>(length)))
        THROW_EXCEPTION(-1, readFailure);
}

void readText(InputStream& is, String& text)
{
    const int size = readTextSize(is);
    if (size <= shortTextBytes) {
        readShortText(is, size, text);
        return;
    }
    String_T<char> utf8;
    readBytes(is, size, utf8);
    String wide = StringHelper::utf8ToWide(utf8);
    if (wide.isEmpty() && *utf8.getBuffer() != 0) // no memory
        THROW_EXCEPTION(-1, readFailure);
    text = std::move(wide);
}

void readText(InputStream& is, String_T<unsigned char>& text)
{
    String_T<char> utf8;
    readText(is, utf8);
    text = StringHelper::utf8ToAnsi(utf8);
}

void writeBytes(OutputStream& os, const char* bytes, int size)
{
    os << Varint(size);
    if (size > 0 && os.write(bytes, size) != size)
        THROW_EXCEPTION(-1, writeFailure);
}

void writeText(OutputStream& os, const String_T<char>& text)
{
    writeBytes(os, text.getBuffer(), text.getBufferLength() - 1);
}

void writeText(OutputStream& os, const String& text)
{
    constexpr std::size_t maxBytesOfUnit = 3;
    const wchar_t* units = text.getBuffer();
    const std::size_t length = text::length(units);
    if (length <= shortTextBytes / maxBytesOfUnit) {
        char bytes[shortTextBytes];
        writeBytes(os, bytes,
                   static_cast<int>(platform::wideToCodePage(platform::utf8CodePage, units, length, bytes,
                                                             shortTextBytes)));
        return;
    }
    const String_T<char> utf8 = StringHelper::wideToUtf8(text);
    if (utf8.isEmpty() && *units != 0) // no memory
        THROW_EXCEPTION(-1, writeFailure);
    writeText(os, utf8);
}

void writeText(OutputStream& os, const String_T<unsigned char>& text)
{
    writeText(os, StringHelper::ansiToUtf8(text));
}

} // namespace

bool InputStream::attach(Input* input)
{
    _input = input;
    return true;
}

Unknown::Handle_T<Input> InputStream::detach() { return std::move(_input); }

int InputStream::peek(void* buffer, int size) const { return _input->peek(buffer, size); }

bool OutputStream::attach(Output* output)
{
    _output = output;
    return true;
}

Unknown::Handle_T<Output> OutputStream::detach() { return std::move(_output); }

void binary::refuseRead(const wchar_t* type)
{
    THROW_EXCEPTION(-1, formatted(L"orvi::InputStream& operator>>(orvi::InputStream &is,%s &i)", type));
}

void binary::refuseWrite(const wchar_t* type)
{
    THROW_EXCEPTION(-1,
                    formatted(L"orvi::OutputStream& operator<<(orvi::OutputStream &os, const %s &i)", type));
}

void binary::readScalar(InputStream& is, void* value, int size, const wchar_t* type)
{
    if (is.read(value, size) != size)
        refuseRead(type);
}

void binary::writeScalar(OutputStream& os, const void* value, int size, const wchar_t* type)
{
    if (os.write(value, size) != size)
        refuseWrite(type);
}

bool binary::readObjectHead(InputStream& is, Unknown::Handle_T<Unknown>& object, const std::type_info& type)
{
    char tag = 0;
    is >> tag;
    if (tag == nullTag)
        return false;
    if (tag != objectTag)
        THROW_EXCEPTION(-1, formatted(L"TyIs& operator >>(TyIs &,%s::Handle &) Error!", typeName(type)));
    unsigned int classId = 0;
    is >> classId;
    object = Unknown::RtFactory::createClassInstance(classId);
    return true;
}

void binary::readObjectBody(InputStream& is, Unknown* object, const std::type_info& type)
{
    const ObjectLevel level;
    if (object == nullptr)
        THROW_EXCEPTION(-1, formatted(L"TyIs& operator >>(TyIs &,%s::Handle &)", typeName(type)));
    if (level.isTooDeep())
        THROW_EXCEPTION(-1, formatted(L"TyIs& operator >>(TyIs &,%s::Handle &) Error!", typeName(type)));
    object->importFrom(is);
}

void binary::writeObject(OutputStream& os, const Unknown* object, const std::type_info& type)
{
    if (object == nullptr) {
        os << nullTag;
        return;
    }
    const ObjectLevel level;
    if (level.isTooDeep())
        THROW_EXCEPTION(-1,
                        formatted(L"TyOs& operator <<(TyOs &,const %s::Handle &) Error!", typeName(type)));
    os << objectTag << object->getClassId();
    object->exportTo(os);
}

template <class T>
InputStream& operator>>(InputStream& is, String_T<T>& text)
{
    readText(is, text);
    return is;
}

template <class T>
OutputStream& operator<<(OutputStream& os, const String_T<T>& text)
{
    writeText(os, text);
    return os;
}

template InputStream& operator>>(InputStream& is, String_T<wchar_t>& text);
template InputStream& operator>>(InputStream& is, String_T<char>& text);
template InputStream& operator>>(InputStream& is, String_T<unsigned char>& text);
template OutputStream& operator<<(OutputStream& os, const String_T<wchar_t>& text);
template OutputStream& operator<<(OutputStream& os, const String_T<char>& text);
template OutputStream& operator<<(OutputStream& os, const String_T<unsigned char>& text);

OutputStream& operator<<(OutputStream& os, InputStream& is)
{
    constexpr int maxEmptyAnswers = 16; // in a row, from a source that goes on announcing bytes
    constexpr const wchar_t* failure = L"OutputStream& operator <<(OutputStream &,InputStream &)";
    char piece[8192];
    int emptyAnswers = 0;
    int available = 0;
    while ((available = is.available()) > 0) {
        const int size = is.read(piece, static_cast<int>(sizeof piece));
        emptyAnswers = size == 0 ? emptyAnswers + 1 : 0;
        if (size < 0 || size > static_cast<int>(sizeof piece) || emptyAnswers == maxEmptyAnswers)
            THROW_EXCEPTION(-1, failure);
        if (size > 0 && os.write(piece, size) != size)
            THROW_EXCEPTION(-1, failure);
    }
    if (available < 0)
        THROW_EXCEPTION(-1, failure);
    return os;
}

} // namespace orvi
