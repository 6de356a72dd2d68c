#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/PropertyTable.h>
#include <orvi/core/Stream.h>

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace orvi {

class Message;

// How the members of a message travel in its body, one behind the other and without names. A type that has the
// stream operators of Stream.h travels by them; so give a type of your own
//
//     InputStream& operator>>(InputStream& is, T& value);         // throws Exception
//     OutputStream& operator<<(OutputStream& os, const T& value);
//
// in its namespace. Besides: a bool is one byte, 0 or 1; Time and TimeSpan are their 64-bit values; a Uuid, a
// uuid_node_t and the types of Geometry.h are their raw bytes; a vector or a list is a Varint count and its
// elements, each of which must take a byte at least.

/** What BodyReader and BodyWriter are made of; not for callers. */
namespace messaging {

template <class T>
concept Streamed = requires(InputStream& is, OutputStream& os, T& target, const T& source)
{
    is >> target;
    os << source;
};

template <class T>
concept RawValue = std::same_as<T, Uuid> || std::same_as<T, uuid_node_t> || std::same_as<T, Point_T<int>> ||
    std::same_as<T, Point_T<float>> || std::same_as<T, Rect_T<int>> || std::same_as<T, Rect_T<float>> ||
    std::same_as<T, Vector2> || std::same_as<T, Vector3> || std::same_as<T, Vector4> ||
    std::same_as<T, Quaternion>;

template <class T>
constexpr bool hasBodyForm()
{
    if constexpr (property::isCollection<T>)
        return hasBodyForm<property::ElementOf<T>>();
    else
        return Streamed<T> || RawValue<T> || std::same_as<T, bool> || std::same_as<T, Buffer> ||
               std::same_as<T, Time> || std::same_as<T, TimeSpan>;
}

ORVI_API void readMember(InputStream& is, bool& target);
ORVI_API void writeMember(OutputStream& os, bool source);
ORVI_API void readMember(InputStream& is, Time& target);
ORVI_API void writeMember(OutputStream& os, const Time& source);
ORVI_API void readMember(InputStream& is, TimeSpan& target);
ORVI_API void writeMember(OutputStream& os, const TimeSpan& source);

ORVI_API void readMember(InputStream& is, Buffer& target); // refuses a size that the stream does not have
ORVI_API void writeMember(OutputStream& os, const Buffer& source);

ORVI_API void readRaw(InputStream& is, void* target, int size, const std::type_info& type);
ORVI_API void writeRaw(OutputStream& os, const void* source, int size, const std::type_info& type);

/** Refuses a count of elements that the stream does not have. */
ORVI_API int readCount(InputStream& is);
ORVI_API void writeCount(OutputStream& os, std::size_t count);

template <Streamed T>
void readMember(InputStream& is, T& target)
{
    is >> target;
}
template <Streamed T>
void writeMember(OutputStream& os, const T& source)
{
    os << source;
}

template <RawValue T>
void readMember(InputStream& is, T& target)
{
    readRaw(is, &target, static_cast<int>(sizeof target), typeid(T));
}
template <RawValue T>
void writeMember(OutputStream& os, const T& source)
{
    writeRaw(os, &source, static_cast<int>(sizeof source), typeid(T));
}

template <class T>
requires property::isCollection<T>
void readMember(InputStream& is, T& target)
{
    target.clear();
    for (int count = readCount(is); count > 0; --count) {
        property::ElementOf<T> element{};
        readMember(is, element);
        target.push_back(std::move(element));
    }
}
template <class T>
requires property::isCollection<T>
void writeMember(OutputStream& os, const T& source)
{
    writeCount(os, source.size());
    for (const auto& element : source)
        writeMember(os, static_cast<const property::ElementOf<T>&>(element));
}

/** Whether a handle leads to objects that read themselves. A class that is only declared is for others to refuse. */
template <class T>
constexpr bool hasObjectBody()
{
    if constexpr (std::is_same_v<T, Property> || std::is_same_v<T, Unknown> || !property::isComplete<T>)
        return true; // the dynamic class decides
    else
        return !std::is_same_v<decltype(&T::importFrom), decltype(&Unknown::importFrom)>;
}

template <class T>
constexpr bool checkBodyForm()
{
    if constexpr (property::isCollection<T>) {
        return checkBodyForm<property::ElementOf<T>>();
    } else {
        static_assert(hasBodyForm<T>(),
                      "this member's type has no binary form: write operator>>(InputStream&, T&) and "
                      "operator<<(OutputStream&, const T&) in its namespace");
        if constexpr (property::isHandle<T>) {
            constexpr bool hasBody = hasObjectBody<property::PointeeOf<T>>();
            static_assert(
                hasBody,
                "objects of this handle's class would arrive empty: declare it by ORVI_DECLARE_MESSAGE, "
                "or override importFrom and exportTo");
        }
        return hasBodyForm<T>();
    }
}

/** Reads the members that a class lists, in their order. */
template <class C>
class BodyReader {
public:
    BodyReader(InputStream& stream, C& object)
        : _stream(stream)
        , _object(object)
    {}

    // The key and the kind of the member are checked by the PropertyTable, which takes the same list.
    template <class Key, class Member>
    void add(const Key&, Member member, const wchar_t* = nullptr)
    {
        if constexpr (requires(C & object) { object.*member; }) {
            if constexpr (checkBodyForm<std::remove_cvref_t<decltype(_object.*member)>>())
                readMember(_stream, _object.*member);
        }
    }

private:
    InputStream& _stream;
    C& _object;
};

/** Writes them. */
template <class C>
class BodyWriter {
public:
    BodyWriter(OutputStream& stream, const C& object)
        : _stream(stream)
        , _object(object)
    {}

    template <class Key, class Member>
    void add(const Key&, Member member, const wchar_t* = nullptr)
    {
        if constexpr (requires(const C& object) { object.*member; }) {
            if constexpr (hasBodyForm<std::remove_cvref_t<decltype(_object.*member)>>())
                writeMember(_stream, _object.*member);
        }
    }

private:
    OutputStream& _stream;
    const C& _object;
};

} // namespace messaging

} // namespace orvi

/** Declares, in the body of a class derived from Message, a message with both forms: a property class (see
    ORVI_DECLARE_PROPERTY) whose members also are the body that travels. `Base`, the last argument, is its direct
    base, whose body goes in front. ORVI_DEFINE_MESSAGE completes it. What follows in the class is private.

        class Greeting : public orvi::Message {
            ORVI_DECLARE_MESSAGE(Greeting, orvi::Message);

        public:
            orvi::String text;
            int times = 1;
        };

        ORVI_DEFINE_MESSAGE(Greeting) // in one source; no semicolon
        {
            table.add(L"text", &Greeting::text);
            table.add(L"times", &Greeting::times, L"how often to say it");
        }

    Reader and writer of a body must have the same list: a new member is a new format.

    A class that writes its body by hand has ORVI_DECLARE_PROPERTY and ORVI_DEFINE_PROPERTY instead, overrides
    importFrom and exportTo, and says how it is made:

        static Handle_T<orvi::Message> createMessage_() { return createInstance(); }

    The first macro expands to

        ORVI_DECLARE_PROPERTY(Greeting, orvi::Message);
        public:
            static Handle_T<Message> createMessage_();
            ... overrides of importFrom and exportTo
        private:
            template <class Table>
            static void listMembers_(Table& table);  // the list, for both forms  */
#define ORVI_DECLARE_MESSAGE(Class, ...)                                                            \
    ORVI_DECLARE_PROPERTY(Class, __VA_ARGS__);                                                      \
                                                                                                    \
public:                                                                                             \
    static ::orvi::Unknown::Handle_T<::orvi::Message> createMessage_() { return createInstance(); } \
    void importFrom(::orvi::InputStream& stream) override;                                          \
    void exportTo(::orvi::OutputStream& stream) const override;                                     \
                                                                                                    \
private:                                                                                            \
    template <class Table>                                                                          \
    static void listMembers_(Table& table)

/** Completes ORVI_DECLARE_MESSAGE in one source, and begins the list of the members: write its body behind,
    `{}` when there are none. */
#define ORVI_DEFINE_MESSAGE(Class)                                 \
    ORVI_DEFINE_PROPERTY(Class) { listMembers_(table); }           \
    void Class::importFrom(::orvi::InputStream& stream)            \
    {                                                              \
        PropertyBase_::importFrom(stream);                         \
        ::orvi::messaging::BodyReader<Class> table(stream, *this); \
        listMembers_(table);                                       \
    }                                                              \
    void Class::exportTo(::orvi::OutputStream& stream) const       \
    {                                                              \
        PropertyBase_::exportTo(stream);                           \
        ::orvi::messaging::BodyWriter<Class> table(stream, *this); \
        listMembers_(table);                                       \
    }                                                              \
    template <class Table>                                         \
    void Class::listMembers_([[maybe_unused]] Table& table)
