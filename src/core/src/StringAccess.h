#pragma once
#include <orvi/core/String.h>

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
};

} // namespace orvi
