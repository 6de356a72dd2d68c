#include <orvi/core/Json.h>

#include "JsonAccess.h"
#include "base/HexText.h"
#include "base/NumberText.h"
#include "base/StringAccess.h"
#include "base/WholeTexts.h"
#include "base/WideText.h"
#include "platform/base/WideScan.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace orvi {

namespace {

constexpr int maxDepth = 1024; // containers within each other: bounds the stack, also of those who read them

/** Keys that came before: most documents have few of them, many times. */
class KeyCache {
public:
    /** The text as a String, which shares its characters with the last one that was the same. */
    bool find(const wchar_t* text, std::size_t length, String& key)
    {
        String& known = _keys[hash(text, length) % size];
        if (JsonKey(known).length != length || std::memcmp(known, text, length * sizeof(wchar_t)) != 0) {
            if (!StringAccess<wchar_t>::assign(known, text, length))
                return false;
        }
        key = known;
        return true;
    }

    static constexpr std::size_t longestKey = 32;

private:
    static constexpr std::size_t size = 128;

    static std::size_t hash(const wchar_t* text, std::size_t length)
    {
        std::uint64_t head = 0;
        std::uint64_t tail = 0;
        const std::size_t bytes = length * sizeof(wchar_t);
        if (bytes >= sizeof head) {
            std::memcpy(&head, text, sizeof head);
            std::memcpy(&tail, text + length - sizeof tail / sizeof(wchar_t), sizeof tail);
        } else {
            std::memcpy(&head, text, bytes);
        }
        return ((head ^ (tail << 7 | tail >> 57)) + length) * 0x9E3779B97F4A7C15u >> 48;
    }

    String _keys[size];
};

const wchar_t* skipSpace(const wchar_t* p)
{
    while (text::isSpace(*p))
        ++p;
    return p;
}

/** White space and comments. Null when a comment does not end. */
const wchar_t* skip(const wchar_t* p)
{
    for (;;) {
        p = skipSpace(p);
        if (*p != '/')
            return p;
        if (p[1] == '/') {
            p += 2;
            while (*p != 0 && *p != '\n')
                ++p;
        } else if (p[1] == '*') {
            for (p += 2; *p != '*' || p[1] != '/'; ++p)
                if (*p == 0)
                    return nullptr;
            p += 2;
        } else {
            return p;
        }
    }
}

/** What stands for itself in a string. */
const wchar_t* skipPlain(const wchar_t* p)
{
    constexpr int few = 12; // most keys and many values end sooner than a scan by blocks has begun
    for (int i = 0; i < few; ++i, ++p)
        if (*p == '"' || *p == '\\' || *p == 0)
            return p;
    return p + platform::scanWide(p, '"', '\\', SIZE_MAX);
}

/** Passes `word` if the text begins with it. */
const wchar_t* passWord(const wchar_t* p, const wchar_t* word)
{
    for (; *word != 0; ++p, ++word)
        if (*p != *word)
            return nullptr;
    return p;
}

/** The escapes of a string become what they stand for. */
class Unescaper {
public:
    /** Decodes the text up to the closing quote at `end`. False when a \u lacks its four digits. */
    bool decode(const wchar_t* p, const wchar_t* end, wchar_t* target)
    {
        _at = p;
        _end = end;
        _target = target;
        while (_at < _end) {
            if (*_at != '\\')
                *_target++ = *_at++;
            else if (!decodeEscape())
                return false;
        }
        return true;
    }
    const wchar_t* targetEnd() const { return _target; }

private:
    bool decodeEscape()
    {
        const wchar_t kind = _at[1];
        if (kind == 'u')
            return decodeUnit();
        *_target++ = plainEscape(kind);
        _at += 2;
        return true;
    }
    static wchar_t plainEscape(wchar_t kind)
    {
        switch (kind) {
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        default:
            return kind;
        }
    }
    /** A surrogate without its other half, and a NUL, are dropped. */
    bool decodeUnit()
    {
        unsigned int unit = 0;
        if (!readUnit(unit))
            return false;
        if (unit >= 0xD800 && unit < 0xDC00) {
            if (_end - _at < 2 || _at[0] != '\\' || _at[1] != 'u')
                return true;
            unsigned int low = 0;
            if (!readUnit(low))
                return false;
            if (low >= 0xDC00 && low < 0xE000) {
                *_target++ = static_cast<wchar_t>(unit);
                *_target++ = static_cast<wchar_t>(low);
            }
            return true;
        }
        if (unit != 0 && (unit < 0xDC00 || unit >= 0xE000))
            *_target++ = static_cast<wchar_t>(unit);
        return true;
    }
    /** Reads "\uXXXX" and passes it. */
    bool readUnit(unsigned int& unit)
    {
        if (_end - _at < 6)
            return false;
        for (const wchar_t* p = _at + 2; p < _at + 6; ++p) {
            const int digit = text::hexValue(*p);
            if (digit < 0)
                return false;
            unit = unit * 16 + static_cast<unsigned int>(digit);
        }
        _at += 6;
        return true;
    }

    const wchar_t* _at = nullptr;
    const wchar_t* _end = nullptr;
    wchar_t* _target = nullptr;
};

/** A recursive descent. Each function takes the place of the first character of what it parses, and a null for
    the value, and gives the place behind it; null when the text is malformed. */
class JsonParser {
public:
    const wchar_t* parse(const wchar_t* p, JsonValue& value)
    {
        switch (*p) {
        case '"':
            return parseText(p, value);
        case '[':
            return parseArray(p, value);
        case '{':
            return parseObject(p, value);
        case 'f':
            JsonAccess::set(value, false);
            return passWord(p, L"false");
        case 't':
            JsonAccess::set(value, true);
            return passWord(p, L"true");
        case 'n':
            return passWord(p, L"null");
        default:
            return *p == '-' || (*p >= '0' && *p <= '9') ? parseNumber(p, value) : nullptr;
        }
    }

private:
    struct Member {
        String key;
        JsonValue value;
    };

    static const wchar_t* parseNumber(const wchar_t* p, JsonValue& value)
    {
        const wchar_t* const begin = p;
        const bool negative = *p == '-';
        const std::uint64_t limit = negative ? std::uint64_t(1) << 63 : UINT64_MAX;
        std::uint64_t number = 0;
        for (p += negative; *p >= '0' && *p <= '9'; ++p) {
            const auto digit = static_cast<unsigned int>(*p - '0');
            if (number >= limit / 10 && (number > limit / 10 || digit > limit % 10))
                return parseReal(begin, value);
            number = number * 10 + digit;
        }
        if (*p == '.' || *p == 'e' || *p == 'E')
            return parseReal(begin, value);
        if (negative)
            JsonAccess::set(value, static_cast<long long>(-number));
        else
            JsonAccess::set(value, static_cast<unsigned long long>(number));
        return p;
    }

    static const wchar_t* parseReal(const wchar_t* p, JsonValue& value)
    {
        const wchar_t* end = nullptr;
        JsonAccess::set(value, text::parseDecimal(p, end));
        return end != p ? end : nullptr;
    }

    const wchar_t* parseText(const wchar_t* p, JsonValue& value)
    {
        String text;
        p = parseString(p, text, false);
        if (p != nullptr)
            JsonAccess::setText(value, std::move(text));
        return p;
    }

    const wchar_t* parseString(const wchar_t* p, String& string, bool isKey)
    {
        const wchar_t* const begin = ++p;
        p = skipPlain(p);
        if (*p == '\\')
            return parseEscaped(begin, p, string);
        const auto length = static_cast<std::size_t>(p - begin);
        if (*p == 0 ||
            !(isKey ? makeKey(begin, length, string) : StringAccess<wchar_t>::assign(string, begin, length)))
            return nullptr;
        return p + 1;
    }

    /** A string whose first backslash stands at `p`. */
    const wchar_t* parseEscaped(const wchar_t* begin, const wchar_t* p, String& string)
    {
        while (*p != '"') {
            if (*p == '\\')
                ++p;
            if (*p == 0)
                return nullptr;
            ++p;
        }
        // Raw memory: what is decoded is never longer than its text.
        const auto longest = static_cast<std::size_t>(p - begin);
        if (longest > _textRoom) {
            _text.reset(new wchar_t[longest]);
            _textRoom = longest;
        }
        Unescaper unescaper;
        if (!unescaper.decode(begin, p, _text.get()))
            return nullptr;
        const auto length = static_cast<std::size_t>(unescaper.targetEnd() - _text.get());
        return StringAccess<wchar_t>::assign(string, _text.get(), length) ? p + 1 : nullptr;
    }

    bool makeKey(const wchar_t* text, std::size_t length, String& key)
    {
        if (length == 0 || length > KeyCache::longestKey || ++_keys < fewKeys)
            return StringAccess<wchar_t>::assign(key, text, length);
        if (_keyCache == nullptr)
            _keyCache = std::make_unique<KeyCache>();
        return _keyCache->find(text, length, key);
    }

    const wchar_t* parseArray(const wchar_t* p, JsonValue& value)
    {
        JsonAccess::set(value, JsonValue::arrayValue);
        p = skip(p + 1);
        if (p == nullptr || _depth == maxDepth)
            return nullptr;
        if (*p == ']')
            return p + 1;
        ++_depth;
        const std::size_t base = _elements.size();
        for (;;) {
            JsonValue element;
            p = parse(p, element);
            if (p == nullptr)
                return nullptr;
            _elements.push_back(std::move(element));
            p = skip(p);
            if (p == nullptr || (*p != ',' && *p != ']'))
                return nullptr;
            if (*p == ']')
                break;
            p = skip(p + 1);
            if (p == nullptr)
                return nullptr;
        }
        --_depth;
        auto& elements = JsonAccess::makeElements(value, _elements.size() - base);
        for (std::size_t i = base; i < _elements.size(); ++i)
            elements.append(std::move(_elements[i]));
        _elements.resize(base);
        return p + 1;
    }

    const wchar_t* parseObject(const wchar_t* p, JsonValue& value)
    {
        JsonAccess::set(value, JsonValue::objectValue);
        p = skip(p + 1);
        if (p == nullptr || _depth == maxDepth)
            return nullptr;
        if (*p == '}')
            return p + 1;
        ++_depth;
        const std::size_t base = _members.size();
        for (;;) {
            Member member;
            if (*p != '"' || (p = parseMember(p, member)) == nullptr)
                return nullptr;
            _members.push_back(std::move(member));
            p = skip(p);
            if (p == nullptr || (*p != ',' && *p != '}'))
                return nullptr;
            if (*p == '}')
                break;
            p = skip(p + 1);
            if (p == nullptr)
                return nullptr;
        }
        --_depth;
        buildObject(value, base);
        return p + 1;
    }

    const wchar_t* parseMember(const wchar_t* p, Member& member)
    {
        p = parseString(p, member.key, true);
        if (p == nullptr)
            return nullptr;
        p = skipSpace(p);
        return *p == ':' ? parse(skipSpace(p + 1), member.value) : nullptr;
    }

    static bool isBefore(const Member& a, const Member& b) { return compareKeys(a.key, b.key) < 0; }

    /** Moves the members from `base` on into the object. */
    void buildObject(JsonValue& value, std::size_t base)
    {
        Member* const first = _members.data() + base;
        const auto count = static_cast<std::uint32_t>(_members.size() - base);
        auto& object = JsonAccess::makeObject(value, count);
        if (isSorted(first, count)) {
            for (std::uint32_t i = 0; i < count; ++i)
                object.append(std::move(first[i].key), std::move(first[i].value));
        } else {
            sort(first, count);
            for (std::uint32_t i = 0; i < count; ++i) { // of equal keys the last one counts
                Member& member = first[_order[i]];
                if (i + 1 == count || isBefore(member, first[_order[i + 1]]))
                    object.append(std::move(member.key), std::move(member.value));
            }
        }
        _members.resize(base);
    }

    static bool isSorted(const Member* members, std::uint32_t count)
    {
        for (std::uint32_t i = 1; i < count; ++i)
            if (!isBefore(members[i - 1], members[i]))
                return false;
        return true;
    }

    /** The order of the keys goes to _order; equal ones keep theirs. */
    void sort(const Member* members, std::uint32_t count)
    {
        constexpr std::uint32_t few = 24;
        _order.resize(count);
        if (count > few) {
            for (std::uint32_t i = 0; i < count; ++i)
                _order[i] = i;
            std::sort(_order.begin(), _order.end(), [members](std::uint32_t a, std::uint32_t b) {
                const int order = compareKeys(members[a].key, members[b].key);
                return order != 0 ? order < 0 : a < b;
            });
            return;
        }
        for (std::uint32_t i = 0; i < count; ++i) { // by insertion
            std::uint32_t at = i;
            for (; at > 0 && isBefore(members[i], members[_order[at - 1]]); --at)
                _order[at] = _order[at - 1];
            _order[at] = i;
        }
    }

    static constexpr int fewKeys = 16;

    // What belongs to containers that are not complete yet; the innermost one's is at the end.
    std::vector<JsonValue> _elements;
    std::vector<Member> _members;
    int _depth = 0;

    std::vector<std::uint32_t> _order;
    std::unique_ptr<wchar_t[]> _text; // decoded
    std::size_t _textRoom = 0;
    int _keys = 0;
    std::unique_ptr<KeyCache> _keyCache;
};

} // namespace

const wchar_t* Json::parseValue(const wchar_t* text, JsonValue& value)
{
    if (text == nullptr)
        return nullptr;
    text = skip(text);
    if (text == nullptr)
        return nullptr;
    const WholeTexts texts;
    JsonValue parsed;
    const wchar_t* end = JsonParser().parse(text, parsed);
    texts.check(); // or the text would count as malformed
    if (end != nullptr)
        value.swap(parsed);
    return end;
}

} // namespace orvi
