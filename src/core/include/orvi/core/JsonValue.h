#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <type_traits>
#include <utility>

namespace orvi {

/** A key to look for: a String or a plain text, of which no String is made. Borrows the text. */
struct JsonKey {
    struct Order;

    JsonKey(const String& key) noexcept
        : text(key)
        , length(static_cast<std::size_t>(key.getBufferLength()) / sizeof(wchar_t) - 1)
    {}
    /** Null counts as the empty text. */
    ORVI_API JsonKey(const wchar_t* key) noexcept;
    JsonKey(const wchar_t* key, std::size_t units) noexcept
        : text(key)
        , length(units)
    {}

    const wchar_t* text;
    std::size_t length;
};

/** Code unit by code unit, a shorter key before those that go on from it. */
struct JsonKey::Order {
    using is_transparent = void;
    bool operator()(const JsonKey& a, const JsonKey& b) const noexcept { return compare(a, b) < 0; }
    static ORVI_API int compare(const JsonKey& a, const JsonKey& b) noexcept;
};

/** One node of JSON: null, a number of one of three kinds, a bool, a string, an array or an object.

    A plain value: copies are deep (only the characters of strings are shared), swap and moves cost nothing.
    Nothing throws, except std::bad_alloc. A conversion that does not fit is one line in Log::warning and a
    neutral or cut result; nothing has to be asked before it is read:

        JsonValue order;
        order[L"id"] = 7;
        order[L"lines"][0][L"article"] = L"pen";
        const JsonValue& line = order[L"lines"][0];
        String article = line[L"article"]; // a const value that lacks an entry gives null

    No depth of nesting is too much for copying, comparing or destroying. Values may be read by many threads
    at once; a change is for one thread alone. */
class ORVI_API JsonValue {
public:
    enum ValueType : std::uint32_t {
        nullValue = 0,
        intValue = 1,
        uintValue = 2, // from `unsigned long long`, and from text for every number without a sign
        realValue = 3,
        boolValue = 4,
        stringValue = 5,
        arrayValue = 6,
        objectValue = 7
    };
    class Members;

    /** The empty string, array or object; 0 or false. */
    JsonValue(ValueType type = nullValue) noexcept
        : _type(type)
    {
        if (type == stringValue)
            setText(String());
    }
    JsonValue(signed char value) noexcept { setInt(static_cast<int>(value)); }
    JsonValue(char value) noexcept { setInt(static_cast<int>(value)); }
    JsonValue(short value) noexcept { setInt(value); }
    JsonValue(int value) noexcept { setInt(value); }
    JsonValue(long value) noexcept { setInt(value); }
    JsonValue(long long value) noexcept { setInt(value); }
    JsonValue(unsigned char value) noexcept { setInt(value); }
    JsonValue(unsigned short value) noexcept { setInt(value); }
    JsonValue(unsigned int value) noexcept { setInt(value); }
    /** An intValue where it fits one. */
    JsonValue(unsigned long value) noexcept
        : _type(value >> 63 == 0 ? intValue : uintValue)
    {
        _word.asUInt = value;
    }
    JsonValue(unsigned long long value) noexcept
        : _type(uintValue)
    {
        _word.asUInt = value;
    }
    JsonValue(float value) noexcept
        : JsonValue(static_cast<double>(value))
    {}
    JsonValue(double value) noexcept
        : _type(realValue)
    {
        _word.asReal = value;
    }
    JsonValue(bool value) noexcept
        : _type(boolValue)
    {
        _word.asBool = value;
    }
    JsonValue(const String& text) noexcept
        : _type(stringValue)
    {
        setText(text);
    }
    /** Null counts as the empty text. */
    JsonValue(const wchar_t* text);
    template <class T>
    requires(!std::is_same_v<std::remove_cv_t<T>, wchar_t>) JsonValue(T*)
    = delete; // it would be a bool

    JsonValue(const JsonValue& other);
    JsonValue(JsonValue&& other) noexcept { take(other); }
    ~JsonValue()
    {
        if (_type >= stringValue)
            clear();
    }

    /** The source may be this value or stand somewhere inside it. */
    JsonValue& operator=(const JsonValue& other)
    {
        JsonValue(other).swap(*this);
        return *this;
    }
    JsonValue& operator=(JsonValue&& other) noexcept
    {
        JsonValue(std::move(other)).swap(*this);
        return *this;
    }
    void swap(JsonValue& other) noexcept
    {
        JsonValue mine;
        mine.take(*this);
        take(other);
        other.take(mine);
    }
    /** Becomes null. */
    void clear() noexcept;

    ValueType type() const noexcept { return _type; }
    bool isNull() const noexcept { return _type == nullValue; }
    bool isNumber() const noexcept { return _type >= intValue && _type <= realValue; }
    bool isBool() const noexcept { return _type == boolValue; }
    bool isString() const noexcept { return _type == stringValue; }
    bool isArray() const noexcept { return _type == arrayValue; }
    bool isObject() const noexcept { return _type == objectValue; }

    /** Entries of an array or object, 0 for all else. An array may have gaps: its size is no highest index. */
    int size() const noexcept;
    /** Null, or a container without entries. Neither 0 nor the empty string is empty. */
    bool empty() const noexcept { return isNull() || (_type >= arrayValue && size() == 0); }

    /** The entry at `index`, any number, or of the name `key`. It is made, as null, where it is missing; and a
        value that is not of the kind loses what it holds and becomes an array or object. The entry stays in
        its place, whatever is added, until the container is cleared, replaced or destroyed. */
    JsonValue& operator[](int index);
    JsonValue& operator[](const String& key);
    JsonValue& operator[](const wchar_t* key);
    /** The entry, or a null that is shared by all. */
    const JsonValue& operator[](int index) const noexcept;
    const JsonValue& operator[](const String& key) const noexcept;
    const JsonValue& operator[](const wchar_t* key) const noexcept;

    /** The members of an object, in the order of their keys; of no other value. For a loop:

            for (const auto& [key, member] : value.getMembers())  */
    const Members& getMembers() const noexcept;

    /** Whether a number fits the type exactly, without a fraction. False for everything else, also for a
        string of digits. */
    bool isInt8() const noexcept;
    bool isUInt8() const noexcept;
    bool isInt16() const noexcept;
    bool isUInt16() const noexcept;
    bool isInt32() const noexcept;
    bool isUInt32() const noexcept;
    bool isInt64() const noexcept;
    bool isUInt64() const noexcept;

    /** Null gives 0, a bool 1 or 0, a string the digits that it begins with. With a warning: an integer out of
        range is cut to the width, a double out of range becomes the nearest number and a NaN 0, a container
        gives 0. A fraction is dropped without one. */
    signed char asInt8() const;
    unsigned char asUInt8() const;
    short asInt16() const;
    unsigned short asUInt16() const;
    int asInt32() const;
    unsigned int asUInt32() const;
    long long asInt64() const;
    unsigned long long asUInt64() const;
    /** Null gives 0, a bool 1 or 0, a string the number that it begins with; a container 0 and a warning. */
    float asFloat() const;
    double asDouble() const;
    /** Whether a number is not 0. A string is false, whatever it says; a container too, with a warning. */
    bool asBool() const;
    /** Null gives the empty string, a number its decimal text (a double 16 digits at most), a bool "true" or
        "false", a container its compact JSON text. */
    String asString() const;

    operator signed char() const { return asInt8(); }
    operator char() const { return static_cast<char>(asInt8()); }
    operator unsigned char() const { return asUInt8(); }
    operator short() const { return asInt16(); }
    operator unsigned short() const { return asUInt16(); }
    operator int() const { return asInt32(); }
    operator unsigned int() const { return asUInt32(); }
    operator long() const { return static_cast<long>(asInt64()); }
    operator unsigned long() const { return static_cast<unsigned long>(asUInt64()); }
    operator long long() const { return asInt64(); }
    operator unsigned long long() const { return asUInt64(); }
    operator float() const { return asFloat(); }
    operator double() const { return asDouble(); }
    operator bool() const { return asBool(); }
    operator String() const { return asString(); }

    /** Strings compare by all their code units, containers entry by entry. Values of two kinds compare by
        their texts: 5 equals 5.0 and L"5". Null is equal to null alone, but an empty string on the *left*
        equals a null. A NaN equals nothing. */
    bool operator==(const JsonValue& other) const;
    bool operator==(const String& text) const { return *this == JsonValue(text); }
    bool operator==(const wchar_t* text) const { return *this == JsonValue(text); }
    template <class T>
    requires std::is_arithmetic_v<T>
    bool operator==(T number) const { return *this == JsonValue(number); }

private:
    friend struct JsonAccess; // the library's own way to the containers
    struct Elements;

    JsonValue& member(const JsonKey& key, const String* name);
    const JsonValue& member(const JsonKey& key) const noexcept;
    void setInt(long long value) noexcept
    {
        _type = intValue;
        _word.asInt = value;
    }
    void setText(const String& text) noexcept;
    String getText() const noexcept;
    /** For a null: takes what the other one holds. */
    void take(JsonValue& other) noexcept
    {
        _word = other._word;
        _type = other._type;
        other._type = nullValue;
    }
    bool equalsScalar(const JsonValue& other) const;
    template <class T>
    bool fits() const noexcept;
    template <class T>
    T asInteger(const wchar_t* type) const;

    union {
        std::int64_t asInt;
        std::uint64_t asUInt = 0;
        double asReal;
        bool asBool;
        wchar_t* asText;    // of a String, with a reference on its block
        Elements* elements; // owned; null: none
        Members* members;   // owned; null: none
    } _word;
    ValueType _type = nullValue;
};

/** The members of an object in the order of their keys. Read like a std::map; changed through the JsonValue alone. */
class ORVI_API JsonValue::Members {
public:
    using value_type = std::pair<const String, JsonValue>;
    class const_iterator;

    Members(const Members&) = delete; // copy the JsonValue
    Members& operator=(const Members&) = delete;

    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;
    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const_iterator find(const JsonKey& key) const noexcept;
    std::size_t count(const JsonKey& key) const noexcept;

protected:
    Members() noexcept = default;
    ~Members() = default;
};

/** Valid until a member is added. */
class ORVI_API JsonValue::Members::const_iterator {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Members::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    const_iterator() noexcept = default;

    reference operator*() const noexcept { return *_current; }
    pointer operator->() const noexcept { return _current; }
    const_iterator& operator++() noexcept;
    const_iterator operator++(int) noexcept
    {
        const_iterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const const_iterator& other) const noexcept { return _current == other._current; }

private:
    friend class Members;
    using Stray = std::map<String, JsonValue, JsonKey::Order>::const_iterator;

    void settle() noexcept;

    const Members* _members = nullptr;
    pointer _current = nullptr; // null: the end
    std::uint32_t _index = 0;   // of the next one of those that were added in order
    Stray _stray;               // the next one of the others
};

} // namespace orvi
