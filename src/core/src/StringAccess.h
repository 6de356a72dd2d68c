#pragma once
#include <orvi/core/String.h>

#include <cstring>

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

    /** What lies in front of the text in a block. */
    static constexpr std::size_t headerBytes = sizeof(typename String_T<T>::StringData);

    /** Makes memory of malloc the block of `target`: it holds the elements, at least one, behind the room for
        the header, and has room for a terminator. */
    static void adopt(String_T<T>& target, void* memory, std::size_t elements)
    {
        target.attach(String_T<T>::adopt(memory, elements));
    }
};

} // namespace orvi
