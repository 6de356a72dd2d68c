#include <orvi/core/Callback.h>

#include <cstdint>
#include <cstring>

namespace orvi {

String makeCallbackKey(const void* target, const void* method, unsigned int methodSize)
{
    String key;
    if (method == nullptr) {
        key.format(L"%p", target);
        return key;
    }
    // A pointer to a method is an address and an offset to `this`: both tell methods apart.
    std::uintptr_t words[2] = {};
    std::memcpy(words, method, methodSize < sizeof words ? methodSize : sizeof words);
    key.format(L"%p@%p", target, reinterpret_cast<const void*>(words[0]));
    if (words[1] != 0) {
        String adjustment;
        adjustment.format(L"+%p", reinterpret_cast<const void*>(words[1]));
        key += adjustment;
    }
    return key;
}

} // namespace orvi
