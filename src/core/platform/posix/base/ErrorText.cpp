#include "platform/base/ErrorText.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace orvi::platform {

void errorText(int code, char* target, std::size_t capacity)
{
    if (capacity == 0)
        return;
    // Untranslated, null for an unknown code, and leaves errno alone (glibc 2.32).
    const char* text = strerrordesc_np(code);
    const std::size_t size = text ? std::min(std::strlen(text), capacity - 1) : 0;
    if (size != 0)
        std::memcpy(target, text, size);
    target[size] = 0;
}

int lastError() { return errno; }

} // namespace orvi::platform
