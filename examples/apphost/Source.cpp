#include "Source.h"

#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/File.h>
#include <orvi/core/Json.h>
#include <orvi/core/Text.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace apphost {

using orvi::Archive;
using orvi::File;
using orvi::Handle_T;
using orvi::Json;
using orvi::JsonValue;
using orvi::String;

namespace {

constexpr int mostJsonBytes = 64 * 1024 * 1024;
constexpr int mostShownCharacters = 1024 * 1024;

/** Of the text behind a value: white space and comments. */
bool isNothing(const wchar_t* rest)
{
    JsonValue mark; // which is then the one value in it; the line feed ends a comment
    const String text = String(rest) + L"\n0";
    const wchar_t* const end = Json::parseValue(text, mark);
    return end != nullptr && *end == 0;
}

/** Numbers too large for a double arrive as infinity, for which JSON has no text. */
bool isWritable(const JsonValue& value)
{
    if (value.type() == JsonValue::realValue)
        return std::isfinite(value.asDouble());
    bool writable = true;
    for (const auto& [key, member] : value.getMembers())
        writable = writable && isWritable(member);
    for (int i = 0; writable && value.isArray() && i < value.size(); ++i)
        writable = isWritable(value[i]);
    return writable;
}

String quoted(const wchar_t* text) { return L"'" + String(text) + L"'"; }

/** The reason when the text is not one value. */
bool parse(const String& text, JsonValue& value, String& reason)
{
    constexpr int shown = 40;
    JsonValue parsed;
    const wchar_t* const rest = Json::parseValue(text, parsed);
    if (rest == nullptr)
        reason = L"malformed JSON, or nested more than 1024 deep";
    else if (!isNothing(rest))
        reason = L"more than one JSON value: " + quoted(String(rest).trim().getSubString(0, shown));
    else if (!isWritable(parsed))
        reason = L"JSON with a number that is too large";
    else
        value.swap(parsed);
    return reason.isEmpty();
}

} // namespace

Handle_T<Archive> openSource(const String& url, int mostBytes, String& reason)
{
    errno = 0;
    Handle_T<Archive> archive = orvi::ArchiveFactory::openArchive(url);
    if (archive.isNull()) {
        reason =
            L"cannot open " + quoted(url) + L": " + (errno != 0 ? File::getLastError() : L"no such archive");
        return {};
    }
    const int size = archive->getArchiveSize();
    if (size >= 0 && size <= mostBytes)
        return archive;
    if (size < 0)
        reason = quoted(url) + L" has no size";
    else
        reason.format(L"'%s' is larger than %d bytes", url.getBuffer(), mostBytes);
    return {};
}

bool parseJson(const Call& call, const String& text, JsonValue& value)
{
    String reason;
    return parse(text, value, reason) || call.fail(L"%s", reason.getBuffer());
}

bool loadJson(const Call& call, const wchar_t* url, JsonValue& value)
{
    String reason, text;
    const Handle_T<Archive> source = openSource(url, mostJsonBytes, reason);
    if (source.isNull())
        return call.fail(L"%s", reason.getBuffer());
    if (!orvi::TextReader(source, orvi::TextReader::UTF8).read(text))
        return call.fail(L"cannot read '%s'", url);
    return parse(text, value, reason) || call.fail(L"'%s' is %s", url, reason.getBuffer());
}

bool saveJson(const Call& call, const wchar_t* path, const JsonValue& value, bool pretty)
{
    if (String(path).find(L"://") >= 0)
        return call.fail(L"'%s' is a URL: documents are saved into files", path);
    return Json::save(value, path, pretty) || call.fail(L"cannot write '%s': %s", path, File::getLastError());
}

bool sayJson(const Call& call, const JsonValue& value, bool pretty)
{
    const String text = Json::convertToString(value, pretty);
    if (text.isEmpty() || text.getLength() > mostShownCharacters)
        return call.fail(L"the text has more than %d characters: save it to a file", mostShownCharacters);
    int begin = 0;
    for (int end; (end = text.find(L'\n', begin)) >= 0; begin = end + 1) // no string holds a raw one
        call.say(L"%s", text.getSubString(begin, end - begin).getBuffer());
    call.say(L"%s", text.getSubString(begin, -1).getBuffer());
    return true;
}

int nestingOf(const JsonValue& value)
{
    int inner = 0;
    for (const auto& [key, member] : value.getMembers())
        inner = std::max(inner, nestingOf(member));
    for (int i = 0; value.isArray() && i < value.size(); ++i)
        inner = std::max(inner, nestingOf(value[i]));
    return value.isArray() || value.isObject() ? inner + 1 : 0;
}

} // namespace apphost
