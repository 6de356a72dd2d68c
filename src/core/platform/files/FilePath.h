#pragma once
#include <orvi/core/String.h>

namespace orvi::platform {

/** Between a path in a String and the bytes that the system takes.

    Most paths are UTF-8, but any bytes may stand in one. Each that is no UTF-8 is a lone surrogate of
    U+DC80..U+DCFF in the String, so that every path that the system tells leads back to its file. Other lone
    surrogates become U+FFFD. Null is the empty path. Without memory: the empty path, and a line in the log.
    */
String_T<char> bytesFromPath(const wchar_t* path);
String pathFromBytes(const char* bytes);

} // namespace orvi::platform
