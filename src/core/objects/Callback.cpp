#include <orvi/core/Callback.h>

#include <new>

namespace orvi {

String CallbackAddress::getKey() const
{
    String key;
    if (_kind == Kind::Unknown)
        return key;
    const auto address = [](std::uintptr_t word) { return reinterpret_cast<const void*>(word); };
    if (_kind == Kind::Function)
        key.format(L"%p", address(_target));
    else if (_adjustment == 0)
        key.format(L"%p@%p", address(_target), address(_method));
    else
        key.format(L"%p@%p+%p", address(_target), address(_method), address(_adjustment));
    if (key.isEmpty())
        throw std::bad_alloc();
    return key;
}

std::size_t CallbackAddress::getHash() const noexcept
{
    // Objects and functions lie apart by powers of two: each word gives all of its bits to the result.
    constexpr std::size_t factor = 0x9E3779B97F4A7C15; // of no pattern, odd
    std::size_t hash = 0;
    for (const std::size_t word : {_target, _method, _adjustment}) {
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    }
    return hash;
}

String makeCallbackKey(const void* target, const void* method, unsigned int methodSize)
{
    return method == nullptr ? CallbackAddress(target).getKey()
                             : CallbackAddress(target, method, methodSize).getKey();
}

} // namespace orvi
