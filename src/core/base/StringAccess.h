#pragma once
#include <orvi/core/String.h>

#include <cstring>
#include <utility>

namespace orvi {

/** Lets the library build a text in its final block, without a copy. */
template <class T>
struct StringAccess {
    /** Gives `target` a fresh block for exactly `elements` and a terminator, which is set, and returns the
        room to fill. Null, with `target` unchanged, when memory runs out (the line is in the log). With 0
        elements `target` becomes empty and the result is not to be written. */
    static T* prepare(String_T<T>& target, std::size_t elements)
    {
        if (elements == 0) {
            target.attachEmpty();
            return target._text;
        }
        auto* data = String_T<T>::create(elements);
        if (data == nullptr)
            return nullptr;
        target.attach(data);
        return target._text;
    }

    /** Makes `target` a copy of the elements; false, with `target` unchanged, when memory runs out. */
    static bool assign(String_T<T>& target, const T* text, std::size_t elements)
    {
        T* room = prepare(target, elements);
        if (room != nullptr && elements != 0)
            std::memcpy(room, text, elements * sizeof(T));
        return room != nullptr;
    }

    // A string without the object: its text, which holds one reference on the block.
    static T* detach(String_T<T>&& string) noexcept
    {
        return std::exchange(string._text, String_T<T>::emptyText());
    }
    static void release(T* detached) noexcept { dataOf(detached)->release(); }
    static String_T<T> share(T* detached) noexcept
    {
        String_T<T> string;
        dataOf(detached)->addReference();
        string._text = detached;
        return string;
    }
    static std::size_t length(const T* detached) noexcept
    {
        return dataOf(const_cast<T*>(detached))->bufferLength / sizeof(T) - 1;
    }

    /** What lies in front of the text in a block. */
    static constexpr std::size_t headerBytes = sizeof(typename String_T<T>::StringData);

    /** Makes memory of malloc the block of `target`: it holds the elements, at least one, behind the room for
        the header, and has room for a terminator. */
    static void adopt(String_T<T>& target, void* memory, std::size_t elements)
    {
        target.attach(String_T<T>::adopt(memory, elements));
    }

private:
    static auto* dataOf(T* text) noexcept
    {
        return reinterpret_cast<typename String_T<T>::StringData*>(text) - 1;
    }
};

} // namespace orvi
