#include "Config.h"

#include "Apps.h"
#include "Source.h"

#include <orvi/core/Arguments.h>
#include <orvi/core/Configuration.h>

#include <algorithm>

namespace apphost {

using orvi::Archive;
using orvi::Handle_T;
using orvi::String;

namespace {

constexpr int mostBytes = 64 * 1024;
constexpr std::size_t mostApps = 100; // each has a thread of its own
constexpr wchar_t section[] = L"apphost";

/** Takes the list of names apart. */
bool readNames(String text, std::vector<Start>& starts, String& reason)
{
    for (orvi::skipSpaces(text); !text.isEmpty(); orvi::skipSpaces(text)) {
        const String name = orvi::readToken(text);
        const auto isName = [&name](const Start& start) { return start.name.compareNoCase(name) == 0; };
        if (name.isEmpty())
            reason = L"a name in 'apps' has letters, digits and _ alone, not as here: " + text;
        else if (std::any_of(starts.begin(), starts.end(), isName))
            reason = L"'apps' has the name '" + name + L"' twice";
        else if (starts.size() == mostApps)
            reason.format(L"'apps' has more than %d names", static_cast<int>(mostApps));
        if (!reason.isEmpty())
            return false;
        starts.push_back({name, L"", L""});
    }
    if (starts.empty())
        reason = L"no names under the key 'apps' in a section [apphost]";
    return !starts.empty();
}

bool isKind(const String& name)
{
    const auto kinds = appKinds();
    return std::any_of(kinds.begin(), kinds.end(),
                       [&name](const AppKind& kind) { return name == kind.name; });
}

/** Reads the line that an application has of its own. */
bool readStart(Archive* archive, Start& start, String& reason)
{
    const String line = orvi::getConfigString(archive, section, start.name, L"");
    const wchar_t* const text = line;
    int kindLength = 0;
    while (text[kindLength] != 0 && text[kindLength] != L' ' && text[kindLength] != L'\t')
        ++kindLength;
    start.kind = line.getSubString(0, kindLength);
    start.parameters = line.getSubString(kindLength, -1).trim();
    if (line.isEmpty())
        reason = L"no line '" + start.name + L" = KIND' in the section [apphost]";
    else if (!isKind(start.kind))
        reason = L"no kind '" + start.kind + L"' for '" + start.name + L"'";
    return reason.isEmpty();
}

} // namespace

bool readConfig(const String& url, std::vector<Start>& starts, String& reason)
{
    const Handle_T<Archive> archive = openSource(url, mostBytes, reason);
    if (archive.isNull() || !readNames(orvi::getConfigString(archive, section, L"apps", L""), starts, reason))
        return false;
    return std::all_of(starts.begin(), starts.end(),
                       [&](Start& start) { return readStart(archive, start, reason); });
}

} // namespace apphost
