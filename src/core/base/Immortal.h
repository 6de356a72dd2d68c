#pragma once
#include <new>
#include <utility>

namespace orvi {

/** Holds a static object that is made on first use and never destroyed, so that code which runs at the very
    end of the process, or of other modules, still finds it. The object lies inside: nothing leaks. */
template <class T>
class Immortal {
public:
    template <class... Arguments>
    explicit Immortal(Arguments&&... arguments)
    {
        new (_storage) T(std::forward<Arguments>(arguments)...);
    }
    T& operator*() { return *std::launder(reinterpret_cast<T*>(_storage)); }
    T* operator->() { return &**this; }

private:
    alignas(T) unsigned char _storage[sizeof(T)];
};

} // namespace orvi
