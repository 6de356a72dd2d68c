#include "Input.h"

#include <orvi/core/Configuration.h>
#include <orvi/core/MemoryFile.h>
#include <orvi/core/Text.h>

#include <algorithm>

using namespace orvi;
using fuzz::expect;

namespace {

const wchar_t* const absent = L"-17";

/** The front of the rest, up to a line feed. */
std::string takeLine(std::string& rest)
{
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string line = rest.substr(0, end);
    rest.erase(0, end + 1);
    return line;
}

bool isKeyCharacter(wchar_t ch)
{
    return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') || ch == '_';
}

/** Searches all lines by the rules. */
String searchValue(Archive* archive, const String& section, const String& key)
{
    TextReader reader(archive, TextReader::UTF8);
    bool isInside = false;
    for (String line; reader.readLine(line);) {
        line.trim();
        if (!isInside) {
            isInside = line.compareNoCase(L"[" + section + L"]") == 0;
            continue;
        }
        if (*line.getBuffer() == '#' || line.isEmpty())
            continue;
        int end = 0;
        while (isKeyCharacter(line.getBuffer()[end]))
            ++end;
        if (line.getSubString(0, end).compareNoCase(key) != 0)
            continue;
        String value = line.getSubString(end, -1).trim();
        if (*value.getBuffer() != '=')
            continue;
        value = value.getSubString(1, -1).trim();
        return value.isEmpty() ? String(absent) : value;
    }
    return absent;
}

int toInteger(const String& text)
{
    const auto number = std::strtoll(StringHelper::wideToUtf8(text).getBuffer(), nullptr, 10);
    return static_cast<int>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The section, the key and the file
    std::string rest(data, data + size);
    const String section = StringHelper::utf8ToWide(takeLine(rest).c_str());
    const String key = StringHelper::utf8ToWide(takeLine(rest).c_str());
    const auto file = MemoryFile::createInstance();
    file->write(rest.data(), static_cast<int>(rest.size()));
    file->setPosition(0);
    Archive* const archive = file;
    const String expected = searchValue(archive, section, key);

    expect(getConfigString(archive, section, key, absent) == expected, "the first line of the key counts");
    expect(getConfigInteger(archive, section, key, -17) == toInteger(expected),
           "a number is that of the text");
    expect(getConfigBoolean(archive, section, key, false) == (expected.compareNoCase(L"true") == 0),
           "true is true");
    const String orTrue = getConfigString(archive, section, key, L"true");
    expect(getConfigBoolean(archive, section, key, true) == (orTrue.compareNoCase(L"true") == 0),
           "a default of true");
    return 0;
}
