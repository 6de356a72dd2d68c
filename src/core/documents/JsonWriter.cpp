#include <orvi/core/Json.h>

#include <orvi/core/Stream.h>

#include "JsonAccess.h"
#include "base/NumberText.h"
#include "base/TextBuilder.h"

#include <cstring>
#include <vector>

namespace orvi {

namespace {

/** Passes the text on to an Output. */
class OutputSink {
public:
    explicit OutputSink(Output& output)
        : _output(output)
        , _buffer(4096)
    {}

    /** As in TextBuilder: null when the Output does not take what is there. */
    wchar_t* room(std::size_t elements)
    {
        if (_buffer.size() - _size < elements) {
            if (!flush())
                return nullptr;
            if (_buffer.size() < elements)
                _buffer.resize(elements);
        }
        return _buffer.data() + _size;
    }
    void add(std::size_t elements) { _size += elements; }

    bool flush()
    {
        const auto bytes = static_cast<int>(_size * sizeof(wchar_t));
        _size = 0;
        return bytes == 0 || _output.write(_buffer.data(), bytes) == bytes;
    }

private:
    Output& _output;
    std::vector<wchar_t> _buffer;
    std::size_t _size = 0;
};

constexpr bool needsEscape(wchar_t ch) { return ch < 0x20 || ch == '"' || ch == '\\'; }

/** What stands behind the backslash; 'u' for those without a short form. */
constexpr wchar_t escapeOf(wchar_t ch)
{
    switch (ch) {
    case '\b':
        return 'b';
    case '\f':
        return 'f';
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    case '\t':
        return 't';
    case '"':
    case '\\':
        return ch;
    default:
        return 'u';
    }
}

wchar_t* putEscape(wchar_t* target, wchar_t ch)
{
    const wchar_t kind = escapeOf(ch);
    *target++ = '\\';
    *target++ = kind;
    if (kind != 'u')
        return target;
    *target++ = '0';
    *target++ = '0';
    *target++ = static_cast<wchar_t>('0' + (ch >> 4));
    *target++ = L"0123456789abcdef"[ch & 0xF];
    return target;
}
constexpr std::size_t escapeRoom = 6;

/** Prints without recursion: containers may be nested to any depth. Each step tells whether the sink took
    it. */
template <class Sink>
class JsonPrinter {
public:
    JsonPrinter(Sink& sink, bool pretty)
        : _sink(sink)
        , _pretty(pretty)
    {}

    bool print(const JsonValue& value)
    {
        if (!printValue(value))
            return false;
        while (!_open.empty()) {
            Level& level = _open.back();
            if (!(level.elements != nullptr ? printElement(level) : printMember(level)))
                return false;
        }
        return true;
    }

private:
    /** A container whose opening bracket has been written. */
    struct Level {
        const JsonAccess::Elements* elements; // null: an object
        int size;
        int index; // of the next entry
        JsonValue::Members::const_iterator member;
    };

    // The level may be moved by the next value that is printed.
    bool printElement(Level& level)
    {
        while (level.index != level.size) {
            const int index = level.index++;
            const JsonValue* element = level.elements->find(index);
            if (!separate(index == 0))
                return false;
            if (element == nullptr ? !put(L"null", 4) : !printValue(*element))
                return false;
            if (element != nullptr && element->type() >= JsonValue::arrayValue)
                return true;
        }
        return close(']');
    }
    bool printMember(Level& level)
    {
        if (level.index == level.size)
            return close('}');
        const auto& [key, value] = *level.member;
        ++level.member;
        return separate(level.index++ == 0) && printText(key) && printColon() && printValue(value);
    }
    bool open(const JsonValue& container)
    {
        const int size = container.size();
        if (size == 0)
            return breakLine() && put(container.isArray() ? ']' : '}');
        if (container.isArray())
            _open.push_back({JsonAccess::elements(container), size, 0, {}});
        else
            _open.push_back({nullptr, size, 0, container.getMembers().begin()});
        return true;
    }
    bool close(wchar_t bracket)
    {
        _open.pop_back();
        return breakLine() && put(bracket);
    }
    bool separate(bool isFirst) { return (isFirst || put(',')) && breakLine(); }
    bool printColon() { return _pretty ? put(L" : ", 3) : put(':'); }

    bool breakLine()
    {
        if (!_pretty)
            return true;
        const std::size_t indent = _open.size() * 4;
        wchar_t* target = _sink.room(1 + indent);
        if (target == nullptr)
            return false;
        *target = '\n';
        for (std::size_t i = 1; i <= indent; ++i)
            target[i] = ' ';
        _sink.add(1 + indent);
        return true;
    }

    bool printValue(const JsonValue& value)
    {
        switch (value.type()) {
        case JsonValue::nullValue:
            return put(L"null", 4);
        case JsonValue::boolValue:
            return value.asBool() ? put(L"true", 4) : put(L"false", 5);
        case JsonValue::stringValue:
            return printText(JsonAccess::text(value));
        case JsonValue::arrayValue:
            return put('[') && open(value);
        case JsonValue::objectValue:
            return put('{') && open(value);
        default:
            return printNumber(value);
        }
    }

    bool printNumber(const JsonValue& value)
    {
        wchar_t* target = _sink.room(text::numberRoom);
        if (target == nullptr)
            return false;
        int length = 0;
        if (value.type() == JsonValue::realValue)
            length = text::printDouble(target, JsonAccess::real(value));
        else if (value.type() == JsonValue::intValue)
            length = text::printInteger(target, JsonAccess::integer(value));
        else
            length = text::printInteger(target, JsonAccess::unsignedInteger(value));
        _sink.add(static_cast<std::size_t>(length));
        return true;
    }

    bool printText(const JsonKey& text)
    {
        const wchar_t* const end = text.text + text.length;
        if (!put('"'))
            return false;
        for (const wchar_t* p = text.text; p < end;) {
            const wchar_t* const begin = p;
            const wchar_t* const chunkEnd = end - p > longestChunk ? p + longestChunk : end;
            wchar_t* const room = _sink.room(static_cast<std::size_t>(chunkEnd - p) + escapeRoom);
            if (room == nullptr)
                return false;
            for (; p < chunkEnd && !needsEscape(*p); ++p)
                room[p - begin] = *p;
            wchar_t* target = room + (p - begin);
            if (p < chunkEnd)
                target = putEscape(target, *p++);
            _sink.add(static_cast<std::size_t>(target - room));
        }
        return put('"');
    }

    bool put(wchar_t ch)
    {
        wchar_t* target = _sink.room(1);
        if (target == nullptr)
            return false;
        *target = ch;
        _sink.add(1);
        return true;
    }
    bool put(const wchar_t* text, std::size_t length)
    {
        wchar_t* target = _sink.room(length);
        if (target == nullptr)
            return false;
        std::memcpy(target, text, length * sizeof(wchar_t));
        _sink.add(length);
        return true;
    }

    static constexpr std::ptrdiff_t longestChunk = 2048;

    Sink& _sink;
    bool _pretty;
    std::vector<Level> _open;
};

} // namespace

String Json::convertToString(const JsonValue& value, bool pretty)
{
    TextBuilder<wchar_t> text;
    String result;
    if ((!JsonPrinter(text, pretty).print(value) || !text.finish(result)) && !text.isTooLong())
        throw std::bad_alloc();
    return result;
}

bool Json::writeValue(const JsonValue& value, Output* output, bool pretty)
{
    if (output == nullptr)
        return false;
    OutputSink sink(*output);
    return JsonPrinter(sink, pretty).print(value) && sink.flush();
}

} // namespace orvi
