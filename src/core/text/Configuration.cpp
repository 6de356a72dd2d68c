#include <orvi/core/Configuration.h>

#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/Arguments.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>
#include <orvi/core/Text.h>

#include "base/WholeTexts.h"
#include "base/WideText.h"

#include <new>

namespace orvi {

namespace {

/** Whether a trimmed line sets `key`; then `value` is what it sets. */
bool parseSetting(String& line, const String& key, String& value)
{
    if (line.isEmpty() || *line.getBuffer() == '#')
        return false;
    if (readToken(line).compareNoCase(key) != 0)
        return false;
    line.trim();
    if (*line.getBuffer() != '=')
        return false;
    value = line.getSubString(1, -1).trim();
    return true;
}

/** The value; empty when there is none. Throws std::bad_alloc when a text on the way to it could not be made. */
String findValue(Archive* archive, const String& section, const String& key)
{
    const WholeTexts texts;
    const String header = L"[" + section + L"]";
    texts.check();
    TextReader reader(archive, TextReader::UTF8);
    String line;
    String value;
    bool isInSection = false;
    while (reader.readLine(line)) {
        line.trim();
        const bool isFound = isInSection && parseSetting(line, key, value);
        texts.check(); // it would be the line of another key, or of none
        if (isFound)
            return value;
        isInSection = isInSection || line.compareNoCase(header) == 0;
    }
    return value;
}

/** `Source` is an Archive* or the name of a file. */
template <class Source>
int getInteger(const Source& source, const String& section, const String& key, int defaultValue)
{
    return text::parseInteger<int>(
        getConfigString(source, section, key, convertToString(defaultValue)).getBuffer());
}

template <class Source>
bool getBoolean(const Source& source, const String& section, const String& key, bool defaultValue)
{
    return getConfigString(source, section, key, convertToString(defaultValue)).compareNoCase(L"true") == 0;
}

} // namespace

String getConfigString(Archive* archive, const String& section, const String& key, const String& defaultValue)
{
    if (archive == nullptr)
        return defaultValue;
    archive->setPosition(0);
    try {
        const String value = findValue(archive, section, key);
        return value.isEmpty() ? defaultValue : value;
    } catch (const std::bad_alloc&) {
        Log::error(L"Read configuration error! Out of memory Key:%s", key.getBuffer());
        return defaultValue;
    }
}

String getConfigString(const String& fileName, const String& section, const String& key,
                       const String& defaultValue)
{
    const Unknown::Handle_T<Archive> archive = ArchiveFactory::openArchive(L"memory://<<" + fileName);
    return getConfigString(static_cast<Archive*>(archive), section, key, defaultValue);
}

int getConfigInteger(Archive* archive, const String& section, const String& key, int defaultValue)
{
    return getInteger(archive, section, key, defaultValue);
}

int getConfigInteger(const String& fileName, const String& section, const String& key, int defaultValue)
{
    return getInteger(fileName, section, key, defaultValue);
}

bool getConfigBoolean(Archive* archive, const String& section, const String& key, bool defaultValue)
{
    return getBoolean(archive, section, key, defaultValue);
}

bool getConfigBoolean(const String& fileName, const String& section, const String& key, bool defaultValue)
{
    return getBoolean(fileName, section, key, defaultValue);
}

} // namespace orvi
