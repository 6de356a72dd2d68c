#include <orvi/core/Json.h>

#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/File.h>
#include <orvi/core/Log.h>
#include <orvi/core/Text.h>

#include "platform/FilePath.h"
#include "platform/ReplacedFile.h"

#include <cerrno>

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
    const int error = errno;
    Log::error(format, File::getLastError(), path.getBuffer());
    errno = error;
    return false;
}

/** Writes to a device or a pipe. */
bool saveInPlace(const JsonValue& value, const String& path, bool pretty)
{
    const Handle_T<File> file = File::createInstance();
    if (!file->open(path, File::create | File::truncate | File::readWrite,
                    File::permitRead | File::permitWrite))
        return false;
    // The last bytes leave the file's buffer here, where it can still be told that they did not.
    return Json::write(value, file, pretty) && file->setPosition(0) == 0;
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
