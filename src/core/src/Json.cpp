#include <orvi/core/Json.h>

#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/File.h>
#include <orvi/core/Text.h>

namespace orvi {

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
    const Handle_T<File> file = File::createInstance();
    if (!file->open(path, File::create | File::truncate | File::readWrite,
                    File::permitRead | File::permitWrite))
        return false;
    // The last bytes leave the file's buffer here, where it can still be told that they did not.
    return write(value, file, pretty) && file->setPosition(0) == 0;
}

} // namespace orvi
