#include "JsonAccess.h"

#include "base/WholeTexts.h"
#include "base/WideText.h"

#include <limits>

namespace orvi {

namespace {

constexpr std::size_t firstCapacity = 8; // of a container that is filled entry by entry

/** A container with its first block behind it. */
template <class Container, class Entry>
Container* createContainer(std::size_t capacity)
{
    static_assert(sizeof(Container) % alignof(Entry) == 0);
    void* memory = nullptr;
    if (capacity <= static_cast<std::size_t>(std::numeric_limits<int>::max()))
        memory = std::malloc(sizeof(Container) + capacity * sizeof(Entry));
    if (memory == nullptr)
        throw std::bad_alloc();
    return new (memory) Container(static_cast<std::uint32_t>(capacity));
}

} // namespace

JsonKey::JsonKey(const wchar_t* key) noexcept
    : text(key != nullptr ? key : L"")
    , length(text::length(text))
{}

int JsonKey::Order::compare(const JsonKey& a, const JsonKey& b) noexcept { return compareKeys(a, b); }

const JsonValue* JsonValue::Elements::findStray(int index) const noexcept
{
    const auto found = strays()->find(index);
    return found != strays()->end() ? &found->second : nullptr;
}

JsonValue& JsonValue::Elements::findOrAdd(int index)
{
    if (const JsonValue* found = find(index))
        return const_cast<JsonValue&>(*found);
    return static_cast<std::uint32_t>(index) == count() ? append() : makeStrays()[index];
}

std::uint32_t JsonObject::lowerBound(const JsonKey& key) const noexcept
{
    std::uint32_t low = 0;
    for (std::uint32_t high = count(); low < high;) {
        const std::uint32_t middle = low + (high - low) / 2;
        if (compareKeys(at(middle).first, key) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

const JsonValue* JsonObject::find(const JsonKey& key) const noexcept
{
    const std::uint32_t index = lowerBound(key);
    if (index == count())
        return nullptr; // no stray lies behind the last member of the blocks
    if (compareKeys(at(index).first, key) == 0)
        return &at(index).second;
    if (strays() == nullptr)
        return nullptr;
    const auto found = strays()->find(key);
    return found != strays()->end() ? &found->second : nullptr;
}

JsonValue& JsonObject::findOrAdd(const JsonKey& key, const String* name)
{
    if (const JsonValue* found = find(key))
        return const_cast<JsonValue&>(*found);
    const WholeTexts texts;
    const String newName = name != nullptr ? *name : String(key.text);
    texts.check();
    if (count() == 0 || compareKeys(at(count() - 1).first, key) < 0)
        return append(newName, JsonValue()).second;
    return makeStrays()[newName];
}

JsonValue::Elements& JsonAccess::makeElements(JsonValue& array, std::size_t capacity)
{
    return *(array._word.elements =
                 createContainer<Elements, JsonValue>(capacity != 0 ? capacity : firstCapacity));
}

JsonObject& JsonAccess::makeObject(JsonValue& object, std::size_t capacity)
{
    auto* made =
        createContainer<JsonObject, JsonObject::value_type>(capacity != 0 ? capacity : firstCapacity);
    object._word.members = made;
    return *made;
}

/** The containers that wait for their end: nested ones are taken out of their values and put here, so that no
    depth costs stack. */
class JsonAccess::Doomed {
public:
    void add(JsonValue& value) noexcept
    {
        if (value._type < JsonValue::arrayValue)
            return;
        if (value._type == JsonValue::arrayValue)
            push(_arrays, elements(value));
        else
            push(_objects, object(value));
        value._type = JsonValue::nullValue;
    }
    void destroyAll() noexcept
    {
        while (_arrays != nullptr || _objects != nullptr) {
            while (auto* array = pop(_arrays)) {
                array->release([this](JsonValue& value) { add(value); },
                               [this](auto& stray) { add(stray.second); });
                std::free(array);
            }
            if (auto* object = pop(_objects)) {
                object->release([this](auto& member) { add(member.second); },
                                [this](auto& stray) { add(stray.second); });
                std::free(object);
            }
        }
    }

private:
    template <class Container>
    static void push(Container*& list, Container* container) noexcept
    {
        if (container == nullptr)
            return;
        container->doomed = list;
        list = container;
    }
    template <class Container>
    static Container* pop(Container*& list) noexcept
    {
        Container* container = list;
        if (container != nullptr)
            list = static_cast<Container*>(container->doomed);
        return container;
    }

    Elements* _arrays = nullptr;
    JsonObject* _objects = nullptr;
};

void JsonAccess::destroy(JsonValue& container) noexcept
{
    Doomed doomed;
    doomed.add(container);
    doomed.destroyAll();
}

/** Copies containers without recursion. */
class JsonAccess::Copier {
public:
    void copy(JsonValue& target, const JsonValue& source)
    {
        add(target, source);
        while (!_open.empty()) {
            const auto [from, to] = _open.back();
            _open.pop_back();
            if (from->isArray())
                copyElements(*to, *from);
            else
                copyMembers(*to, *from);
        }
    }

private:
    /** A container is copied later: its place stays where it is. */
    void add(JsonValue& target, const JsonValue& source)
    {
        if (!source.isArray() && !source.isObject()) {
            target = source;
            return;
        }
        target._type = source._type;
        target._word.elements = nullptr;
        if (!source.empty())
            _open.emplace_back(&source, &target);
    }
    void copyElements(JsonValue& target, const JsonValue& source)
    {
        const Elements& from = *elements(source);
        Elements& to = makeElements(target, from.size());
        for (std::uint32_t i = 0; i < from.count(); ++i)
            add(to.append(), from.at(i));
        if (from.strays() != nullptr)
            for (const auto& [index, value] : *from.strays())
                add(to.findOrAdd(index), value);
    }
    void copyMembers(JsonValue& target, const JsonValue& source)
    {
        JsonObject& to = makeObject(target, object(source)->size());
        for (const auto& [key, value] : source.getMembers())
            add(to.append(key, JsonValue()).second, value);
    }

    std::vector<std::pair<const JsonValue*, JsonValue*>> _open;
};

void JsonAccess::copy(JsonValue& target, const JsonValue& source)
{
    try {
        Copier().copy(target, source);
    } catch (...) {
        target.clear(); // nobody destroys a value whose constructor throws
        throw;
    }
}

/** Compares containers without recursion. */
class JsonAccess::Comparison {
public:
    bool equal(const JsonValue& a, const JsonValue& b)
    {
        if (!equalOrOpen(a, b))
            return false;
        while (!_open.empty()) {
            const auto [left, right] = _open.back();
            _open.pop_back();
            if (!(left->isArray() ? equalElements(*left, *right) : equalMembers(*left, *right)))
                return false;
        }
        return true;
    }

private:
    bool equalOrOpen(const JsonValue& left, const JsonValue& right)
    {
        if (left._type < JsonValue::arrayValue || left._type != right._type)
            return left.equalsScalar(right);
        if (left.size() != right.size())
            return false;
        if (!left.empty())
            _open.emplace_back(&left, &right);
        return true;
    }
    // Sides change with each level: an entry of the right container asks that of the left one.
    bool equalElements(const JsonValue& a, const JsonValue& b)
    {
        const Elements& left = *elements(a);
        const Elements& right = *elements(b);
        const auto equalsAt = [&](int index, const JsonValue& value) {
            const JsonValue* other = right.find(index);
            return other != nullptr && equalOrOpen(*other, value);
        };
        for (std::uint32_t i = 0; i < left.count(); ++i)
            if (!equalsAt(static_cast<int>(i), left.at(i)))
                return false;
        if (left.strays() != nullptr)
            for (const auto& [index, value] : *left.strays())
                if (!equalsAt(index, value))
                    return false;
        return true;
    }
    bool equalMembers(const JsonValue& a, const JsonValue& b)
    {
        auto right = b.getMembers().begin();
        for (const auto& [key, value] : a.getMembers()) {
            if (!equalTexts(key, right->first) || !equalOrOpen(right->second, value))
                return false;
            ++right;
        }
        return true;
    }

    std::vector<std::pair<const JsonValue*, const JsonValue*>> _open;
};

bool JsonAccess::equal(const JsonValue& a, const JsonValue& b) { return Comparison().equal(a, b); }

// Members

namespace {

const JsonObject& objectOf(const JsonValue::Members& members)
{
    return static_cast<const JsonObject&>(members);
}

} // namespace

const JsonValue::Members& JsonValue::getMembers() const noexcept
{
    static const JsonObject none(1);
    return isObject() && _word.members != nullptr ? *_word.members : static_cast<const Members&>(none);
}

std::size_t JsonValue::Members::size() const noexcept { return objectOf(*this).size(); }

JsonValue::Members::const_iterator JsonValue::Members::begin() const noexcept
{
    const_iterator first;
    first._members = this;
    if (const auto* strays = objectOf(*this).strays())
        first._stray = strays->begin();
    first.settle();
    return first;
}

JsonValue::Members::const_iterator JsonValue::Members::end() const noexcept { return {}; }

JsonValue::Members::const_iterator JsonValue::Members::find(const JsonKey& key) const noexcept
{
    const_iterator at;
    at._members = this;
    at._index = objectOf(*this).lowerBound(key);
    if (const auto* strays = objectOf(*this).strays())
        at._stray = strays->lower_bound(key);
    at.settle();
    return at != end() && compareKeys(at->first, key) == 0 ? at : end();
}

std::size_t JsonValue::Members::count(const JsonKey& key) const noexcept
{
    return objectOf(*this).find(key) != nullptr ? 1 : 0;
}

/** Chooses the smaller one of the next member in the blocks and the next stray. */
void JsonValue::Members::const_iterator::settle() noexcept
{
    const JsonObject& object = objectOf(*_members);
    _current = _index < object.count() ? &object.at(_index) : nullptr;
    const auto* strays = object.strays();
    if (strays == nullptr || _stray == strays->end())
        return;
    if (_current == nullptr || compareKeys(_stray->first, _current->first) < 0)
        _current = &*_stray;
}

JsonValue::Members::const_iterator& JsonValue::Members::const_iterator::operator++() noexcept
{
    const JsonObject& object = objectOf(*_members);
    if (_index < object.count() && _current == &object.at(_index))
        ++_index;
    else
        ++_stray;
    settle();
    return *this;
}

} // namespace orvi
