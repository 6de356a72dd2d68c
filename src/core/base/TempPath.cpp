#include "TempPath.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>

#include "platform/files/FileHandle.h"
#include "platform/files/FilePath.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <new>
#include <system_error>

namespace orvi {

namespace {

/** Makes an empty file in the system's directory; empty, with the reason in errno, on failure. `path` is the name as the
    system takes it. */
String tryMakeTempFile(std::string& path)
{
    try {
        std::error_code error;
        std::filesystem::path directory = std::filesystem::temp_directory_path(error);
        if (!error)
            directory = std::filesystem::absolute(directory, error); // the process may go elsewhere
        if (error) {
            errno = error.value();
            return String();
        }
        path = (directory / "orviXXXXXX").string();
        if (!platform::createUniqueFile(path.data()))
            return String();
        const String name = platform::pathFromBytes(path.c_str());
        if (!name.isEmpty())
            return name;
        std::remove(path.c_str()); // there is no memory for its name
    } catch (const std::bad_alloc&) {
        // the same
    }
    errno = ENOMEM;
    return String();
}

} // namespace

String makeTempFile(std::string& path)
{
    String name = tryMakeTempFile(path);
    if (name.isEmpty())
        Log::error(L"%s", getLastErrorString().getBuffer());
    return name;
}

} // namespace orvi
