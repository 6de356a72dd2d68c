#include <orvi/core/Json.h>

#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/File.h>
#include <orvi/core/Log.h>
#include <orvi/core/Text.h>

#include "platform/base/KeepLastError.h"
#include "platform/files/FileHandle.h"
#include "platform/files/FilePath.h"
#include "platform/files/ReplacedFile.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace orvi {

namespace {

/** Takes the text of a document that becomes another's successor. */
class Successor final : public Output {
public:
    int write(const void* data, int size) override
    {
        return file.write(data, static_cast<std::size_t>(size)) ? size : -1;
    }

    platform::ReplacedFile file;
};

/** `format` takes the reason, which stays the thread's last error, and the name. */
bool fail(const wchar_t* format, const String& path)
{
    const platform::KeepLastError keep;
    Log::error(format, File::getLastError(), path.getBuffer());
    return false;
}

/** Takes the text for a device or a pipe. */
class Device final : public Output {
public:
    int write(const void* data, int size) override
    {
        const auto* bytes = static_cast<const unsigned char*>(data);
        std::ptrdiff_t done = 0;
        for (std::ptrdiff_t count = 1; done < size && count > 0; done += std::max<std::ptrdiff_t>(count, 0))
            count = file.write(done, bytes + done, static_cast<std::size_t>(size - done));
        return static_cast<int>(done);
    }

    platform::FileHandle file;
};

bool saveInPlace(const JsonValue& value, const String& path, bool pretty)
{
    const Handle_T<Device> device = new Device;
    if (!device->file.open(
            platform::bytesFromPath(path),
            {.access = platform::FileHandle::Access::ReadWrite, .create = true, .truncate = true}))
        return fail(L"Open file error! %s File:%s", path);
    return (Json::write(value, device, pretty) && device->file.close()) ||
           fail(L"Write file error! %s File:%s", path);
}

} // namespace

bool Json::read(JsonValue& value, Input* input)
{
    String text;
    return TextReader(input, TextReader::UTF8).read(text) && parseValue(text, value) != nullptr;
}

bool Json::write(const JsonValue& value, Output* output, bool pretty)
{
    TextWriter writer;
    if (!writer.open(output, TextWriter::UTF8))
        return false;
    const String text = convertToString(value, pretty);
    return !text.isEmpty() && writer.write(text);
}

bool Json::load(JsonValue& value, const String& path)
{
    return read(value, ArchiveFactory::openArchive(L"memory://<<" + path));
}

bool Json::save(const JsonValue& value, const String& path, bool pretty)
{
    using Opening = platform::ReplacedFile::Opening;
    if (path.isEmpty())
        return false;
    const Handle_T<Successor> document = new Successor;
    const Opening opening = document->file.open(platform::bytesFromPath(path));
    if (opening == Opening::Unsuitable)
        return saveInPlace(value, path, pretty);
    if (opening == Opening::Failed)
        return fail(L"Open file error! %s File:%s", path);
    return (write(value, document, pretty) && document->file.commit()) ||
           fail(L"Write file error! %s File:%s", path);
}

} // namespace orvi
