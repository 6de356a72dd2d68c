#include "DocumentPath.h"

#include "Source.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Json.h>

#include <algorithm>

namespace apphost {

using orvi::Json;
using orvi::JsonValue;
using orvi::String;

namespace {

constexpr int mostIndex = 100'000'000;

bool isEnd(wchar_t ch) { return ch == 0 || ch == L' ' || ch == L'\t'; }

} // namespace

std::optional<DocumentPath> DocumentPath::parse(const wchar_t*& text)
{
    DocumentPath path;
    const wchar_t* p = text;
    if (*p == L'.' && isEnd(p[1])) {
        ++text;
        return path;
    }
    do {
        Step step;
        if (*p == L'[') {
            p = parseBracket(p + 1, step);
            if (p == nullptr)
                return std::nullopt;
        } else {
            if (*p == L'.' && !path._steps.empty())
                ++p;
            const wchar_t* const begin = p;
            while (!isEnd(*p) && *p != L'.' && *p != L'[')
                ++p;
            if (p == begin)
                return std::nullopt;
            step.key = String(begin, static_cast<int>(p - begin));
        }
        path._steps.push_back(step);
    } while (!isEnd(*p));
    text = p;
    return path;
}

/** Gives the place behind the closing bracket; null when something is wrong. */
const wchar_t* DocumentPath::parseBracket(const wchar_t* p, Step& step)
{
    if (*p == L'"') {
        JsonValue key;
        p = Json::parseValue(p, key);
        if (p == nullptr)
            return nullptr;
        step.key = key.asString();
    } else {
        const wchar_t* const begin = p;
        step.index = 0;
        for (; *p >= L'0' && *p <= L'9'; ++p)
            step.index = std::min(step.index * 10 + (*p - L'0'), mostIndex);
        if (p == begin)
            return nullptr;
    }
    return *p == L']' && (isEnd(p[1]) || p[1] == L'.' || p[1] == L'[') ? p + 1 : nullptr;
}

const JsonValue* DocumentPath::find(const JsonValue& document, std::size_t steps, String& reason) const
{
    const JsonValue* value = &document;
    for (std::size_t i = 0; i < steps; ++i) {
        const Step& step = _steps[i];
        const bool byIndex = step.index >= 0;
        if (byIndex ? !value->isArray() : !value->isObject()) {
            reason = text(i) + (byIndex ? L" is no array" : L" is no object");
            return nullptr;
        }
        if (byIndex ? step.index >= value->size() : value->getMembers().count(step.key) == 0) {
            reason = L"there is no " + text(i + 1);
            return nullptr;
        }
        value = byIndex ? &(*value)[step.index] : &(*value)[step.key];
    }
    return value;
}

bool DocumentPath::set(JsonValue& document, JsonValue& value, String& reason) const
{
    if (_steps.empty()) {
        document.swap(value);
        return true;
    }
    const std::size_t parents = _steps.size() - 1;
    const Step& last = _steps.back();
    const JsonValue* const parent = find(document, parents, reason);
    if (parent == nullptr)
        return false;
    if (last.index >= 0 ? !parent->isArray() : !parent->isObject())
        reason = text(parents) + (last.index >= 0 ? L" is no array" : L" is no object");
    else if (last.index > parent->size()) // a gap would have no text
        reason.format(L"the next place in %s is [%d]", text(parents).getBuffer(), parent->size());
    else if (static_cast<int>(_steps.size()) + nestingOf(value) > mostNesting)
        reason.format(L"documents nest at most %d deep", mostNesting);
    if (!reason.isEmpty())
        return false;
    JsonValue* place = &document;
    for (const Step& step : _steps)
        place = step.index >= 0 ? &(*place)[step.index] : &(*place)[step.key];
    place->swap(value);
    return true;
}

/** The path of the first steps. */
String DocumentPath::text(std::size_t steps) const
{
    if (steps == 0)
        return L"the document";
    String text;
    for (std::size_t i = 0; i < steps; ++i) {
        const Step& step = _steps[i];
        if (step.index >= 0)
            text += L"[" + orvi::convertToString(step.index) + L"]";
        else
            text += (i > 0 ? L"." : L"") + step.key;
    }
    return L"'" + text + L"'";
}

} // namespace apphost
