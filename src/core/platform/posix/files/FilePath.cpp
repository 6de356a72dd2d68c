#include "platform/files/FilePath.h"

#include "base/StringAccess.h"
#include "base/WideText.h"
#include "platform/posix/base/Utf8.h"

namespace orvi::platform {

String_T<char> bytesFromPath(const wchar_t* path)
{
    String_T<char> bytes;
    const std::size_t units = path != nullptr ? text::length(path) : 0;
    const std::size_t size = wideToPath(path, units, nullptr, 0);
    if (char* room = StringAccess<char>::prepare(bytes, size))
        wideToPath(path, units, reinterpret_cast<unsigned char*>(room), size);
    return bytes;
}

String pathFromBytes(const char* bytes)
{
    String path;
    const auto* source = reinterpret_cast<const unsigned char*>(bytes);
    const std::size_t size = bytes != nullptr ? text::length(bytes) : 0;
    const std::size_t units = pathToWide(source, size, nullptr, 0);
    if (wchar_t* room = StringAccess<wchar_t>::prepare(path, units))
        pathToWide(source, size, room, units);
    return path;
}

} // namespace orvi::platform
