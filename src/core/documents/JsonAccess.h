#pragma once
#include <orvi/core/JsonValue.h>

#include "base/StringAccess.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <vector>

namespace orvi {

/** The head of a container, which is one allocation: the head and its first block of entries.

    Entries that come in the order of their keys follow each other in blocks that never move, so that they cost
    no more than their size and are found by index; the blocks double. The others, the strays, live in a map.
    What the text parser makes is one block of the right size. */
template <class Entry, class StrayMap>
class JsonEntries {
public:
    using Strays = StrayMap;

    explicit JsonEntries(std::uint32_t capacity) noexcept
        : _capacity(capacity)
    {}

    std::uint32_t count() const noexcept { return _count; }
    std::size_t size() const noexcept { return _count + (_extra != nullptr ? _extra->strays.size() : 0); }
    const Strays* strays() const noexcept { return _extra != nullptr ? &_extra->strays : nullptr; }
    Strays& makeStrays() { return makeExtra().strays; }

    Entry& at(std::uint32_t index) noexcept
    {
        if (index < _capacity)
            return first()[index];
        const std::uint32_t block = blockOf(index);
        return _extra->blocks[block][index - (_capacity << block)];
    }
    const Entry& at(std::uint32_t index) const noexcept { return const_cast<JsonEntries*>(this)->at(index); }

    template <class... Arguments>
    Entry& append(Arguments&&... arguments)
    {
        Entry* entry = new (place(_count)) Entry(std::forward<Arguments>(arguments)...);
        ++_count;
        return *entry;
    }

    /** Destroys everything but the head, after a last visit to each entry and stray. */
    template <class Visit, class VisitStray>
    void release(Visit visit, VisitStray visitStray) noexcept
    {
        const auto destroy = [&visit](Entry* entries, std::uint32_t used) {
            for (std::uint32_t i = 0; i < used; ++i) {
                visit(entries[i]);
                entries[i].~Entry();
            }
        };
        destroy(first(), std::min(_count, _capacity));
        for (std::uint32_t block = 0, begin = _capacity; begin < _count; begin = _capacity << ++block)
            destroy(_extra->blocks[block], std::min(_count - begin, begin));
        if (_extra == nullptr)
            return;
        for (auto& stray : _extra->strays)
            visitStray(stray);
        for (Entry* block : _extra->blocks)
            std::free(block);
        delete _extra;
    }

    JsonEntries* doomed = nullptr; // the next one of those that are being destroyed

private:
    struct Extra {
        std::vector<Entry*> blocks; // block i begins with entry _capacity << i
        Strays strays;
    };

    Entry* first() noexcept { return reinterpret_cast<Entry*>(this + 1); }

    /** The block behind the first one in which the entry lies. */
    std::uint32_t blockOf(std::uint32_t index) const noexcept
    {
        const std::uint32_t folds = index / _capacity; // NOLINT(clang-analyzer-core.DivideZero): never 0
        return 31 - static_cast<std::uint32_t>(__builtin_clz(folds));
    }
    Extra& makeExtra()
    {
        if (_extra == nullptr)
            _extra = new Extra;
        return *_extra;
    }
    void* place(std::uint32_t index)
    {
        if (index < _capacity)
            return first() + index;
        const std::uint32_t block = blockOf(index);
        auto& blocks = makeExtra().blocks;
        if (block == blocks.size()) {
            blocks.push_back(nullptr);
            blocks.back() =
                static_cast<Entry*>(std::malloc((std::size_t(_capacity) << block) * sizeof(Entry)));
            if (blocks.back() == nullptr) {
                blocks.pop_back();
                throw std::bad_alloc();
            }
        }
        return blocks[block] + (index - (_capacity << block));
    }
    std::uint32_t _count = 0;
    std::uint32_t _capacity; // of the first block; not 0
    Extra* _extra = nullptr; // null while the first block has sufficed
};

/** An array: the entries 0 to count() - 1 in blocks, all others among the strays. */
struct JsonValue::Elements : JsonEntries<JsonValue, std::map<int, JsonValue>> {
    using JsonEntries::JsonEntries;

    const JsonValue* find(int index) const noexcept
    {
        if (static_cast<std::uint32_t>(index) < count())
            return &at(static_cast<std::uint32_t>(index));
        return strays() != nullptr ? findStray(index) : nullptr;
    }
    JsonValue& findOrAdd(int index);

private:
    const JsonValue* findStray(int index) const noexcept;
};

/** An object: members that came in order in blocks, all others among the strays. */
struct JsonObject : JsonValue::Members,
                    JsonEntries<JsonValue::Members::value_type, std::map<String, JsonValue, JsonKey::Order>> {
    using JsonEntries::count;
    using JsonEntries::JsonEntries;
    using JsonEntries::size;

    /** The first member in the blocks that is not before `key`. */
    std::uint32_t lowerBound(const JsonKey& key) const noexcept;
    const JsonValue* find(const JsonKey& key) const noexcept;
    /** `name` is the key as a String where there is one. */
    JsonValue& findOrAdd(const JsonKey& key, const String* name);
};

/** The way to the containers of a JsonValue for the sources that build and read whole documents. */
struct JsonAccess {
    using Elements = JsonValue::Elements;

    /** Null for an empty array. */
    static Elements* elements(const JsonValue& value) noexcept { return value._word.elements; }
    /** Null for an empty object. */
    static JsonObject* object(const JsonValue& value) noexcept
    {
        return static_cast<JsonObject*>(value._word.members);
    }
    /** The container of an empty array, which gets one with room for `capacity` entries, at least 1. */
    static Elements& makeElements(JsonValue& array, std::size_t capacity);
    static JsonObject& makeObject(JsonValue& object, std::size_t capacity);

    /** Turn a null into a value. */
    template <class T>
    static void set(JsonValue& null, T value) noexcept
    {
        new (&null) JsonValue(value);
    }
    static void setText(JsonValue& null, String&& text) noexcept
    {
        null._word.asText = StringAccess<wchar_t>::detach(std::move(text));
        null._type = JsonValue::stringValue;
    }

    static JsonKey text(const JsonValue& value) noexcept
    {
        return {value._word.asText, StringAccess<wchar_t>::length(value._word.asText)};
    }
    static std::int64_t integer(const JsonValue& value) noexcept { return value._word.asInt; }
    static std::uint64_t unsignedInteger(const JsonValue& value) noexcept { return value._word.asUInt; }
    static double real(const JsonValue& value) noexcept { return value._word.asReal; }

private:
    friend class JsonValue;
    class Comparison;
    class Copier;
    class Doomed;

    static void destroy(JsonValue& container) noexcept;
    static void copy(JsonValue& target, const JsonValue& source);
    static bool equal(const JsonValue& a, const JsonValue& b);
};

/** The order of keys; see JsonKey::Order. */
inline int compareKeys(const JsonKey& a, const JsonKey& b) noexcept
{
    if (a.text == b.text)
        return (a.length > b.length) - (a.length < b.length);
    const std::size_t common = std::min(a.length, b.length);
    for (std::size_t i = 0; i < common; ++i)
        if (a.text[i] != b.text[i])
            return a.text[i] < b.text[i] ? -1 : 1;
    return (a.length > b.length) - (a.length < b.length);
}

/** Whether two texts are the same, NULs inside them included. */
inline bool equalTexts(const JsonKey& a, const JsonKey& b) noexcept
{
    return a.length == b.length &&
           (a.text == b.text || std::memcmp(a.text, b.text, a.length * sizeof(wchar_t)) == 0);
}

} // namespace orvi
