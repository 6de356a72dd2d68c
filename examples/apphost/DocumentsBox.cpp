#include "Apps.h"
#include "CommandBox.h"
#include "DocumentPath.h"
#include "Source.h"

#include <map>

namespace apphost {

using orvi::AppBox;
using orvi::Handle_T;
using orvi::JsonValue;
using orvi::String;

namespace {

String describe(const JsonValue& value)
{
    String text;
    switch (value.type()) {
    case JsonValue::nullValue:
        return L"null";
    case JsonValue::intValue:
    case JsonValue::uintValue:
        return L"whole number";
    case JsonValue::realValue:
        return L"number";
    case JsonValue::boolValue:
        return L"bool";
    case JsonValue::stringValue:
        text.format(L"string of %d characters", value.asString().getLength());
        return text;
    case JsonValue::arrayValue:
        text.format(L"array of %d", value.size());
        return text;
    case JsonValue::objectValue:
        text.format(L"object of %d", value.size());
        return text;
    }
    return text;
}

/** Holds JSON documents under names: reads, shows, changes, saves and compares them. */
class DocumentsBox : public CommandBox {
public:
    DocumentsBox(const String& appName, const String& parameters)
        : CommandBox(
              appName, parameters,
              {
                  {L"parse", L"NAME JSON", L"a document from the text, in place of an older one", 2,
                   anyNumber, method(this, &DocumentsBox::parse)},
                  {L"list", L"", L"the documents and what they are", 0, 0, method(this, &DocumentsBox::list)},
                  {L"compact", L"NAME", L"its text on one line", 1, 1, method(this, &DocumentsBox::compact)},
                  {L"pretty", L"NAME [PATH]", L"the text of it or of a part, indented", 1, anyNumber,
                   method(this, &DocumentsBox::pretty)},
                  {L"get", L"NAME PATH", L"a part of it: lines[2].article, [\"any key\"], . for all", 2,
                   anyNumber, method(this, &DocumentsBox::get)},
                  {L"type", L"NAME [PATH]", L"what it or a part of it is, and how large", 1, anyNumber,
                   method(this, &DocumentsBox::type)},
                  {L"set", L"NAME PATH JSON", L"change a part; a new key, or the next in an array, adds one",
                   3, anyNumber, method(this, &DocumentsBox::set)},
                  {L"load", L"NAME FILE", L"a document from a file or another archive URL", 2, 2,
                   method(this, &DocumentsBox::load)},
                  {L"save", L"NAME FILE [compact]", L"write it, indented, in place of an older file", 2, 3,
                   method(this, &DocumentsBox::save)},
                  {L"same", L"FILE FILE", L"whether both are equal; 5, 5.0 and \"5\" are", 2, 2,
                   method(this, &DocumentsBox::same)},
                  {L"drop", L"NAME", L"let it go", 1, 1, method(this, &DocumentsBox::drop)},
              })
    {}

private:
    /** Null when there is none of this name; the client knows. */
    JsonValue* find(const Call& call)
    {
        const auto found = _documents.find(call[1]);
        if (found != _documents.end())
            return &found->second;
        call.fail(L"no document '%s': the command list tells them", call[1]);
        return nullptr;
    }

    /** The part that the path names, or the whole document without one. */
    const JsonValue* findPart(const Call& call)
    {
        const JsonValue* const document = find(call);
        if (document == nullptr || call.arguments() == 1)
            return document;
        const wchar_t* text = call.tail(2);
        const auto path = takePath(call, text);
        if (!path)
            return nullptr;
        if (*text != 0) {
            call.fail(L"a path has no blank outside of [\"...\"]");
            return nullptr;
        }
        String reason;
        const JsonValue* const part = path->find(*document, reason);
        if (part == nullptr)
            call.fail(L"%s", reason.getBuffer());
        return part;
    }

    static std::optional<DocumentPath> takePath(const Call& call, const wchar_t*& text)
    {
        auto path = DocumentPath::parse(text);
        if (!path)
            call.fail(L"'%s' begins with no path: write it as lines[2].article, [\"any key\"] or .", text);
        return path;
    }

    bool parse(const Call& call)
    {
        JsonValue value;
        if (!parseJson(call, call.tail(2), value))
            return false;
        return keep(call, value);
    }

    bool keep(const Call& call, JsonValue& value)
    {
        JsonValue& document = _documents[call[1]];
        document.swap(value);
        call.say(L"%s: %s", call[1], describe(document).getBuffer());
        return true;
    }

    bool list(const Call& call)
    {
        for (const auto& [name, document] : _documents)
            call.say(L"%s: %s", name.getBuffer(), describe(document).getBuffer());
        return true;
    }

    bool compact(const Call& call)
    {
        const JsonValue* const document = find(call);
        return document != nullptr && sayJson(call, *document, false);
    }

    bool pretty(const Call& call)
    {
        const JsonValue* const part = findPart(call);
        return part != nullptr && sayJson(call, *part, true);
    }

    bool get(const Call& call)
    {
        const JsonValue* const part = findPart(call);
        return part != nullptr && sayJson(call, *part, false);
    }

    bool type(const Call& call)
    {
        const JsonValue* const part = findPart(call);
        if (part == nullptr)
            return false;
        call.say(L"%s", describe(*part).getBuffer());
        return true;
    }

    bool set(const Call& call)
    {
        JsonValue* const document = find(call);
        const wchar_t* text = call.tail(2);
        const auto path = document != nullptr ? takePath(call, text) : std::nullopt;
        JsonValue value;
        if (!path || !parseJson(call, text, value))
            return false;
        String reason;
        return path->set(*document, value, reason) || call.fail(L"%s", reason.getBuffer());
    }

    bool load(const Call& call)
    {
        JsonValue value;
        return loadJson(call, call[2], value) && keep(call, value);
    }

    bool save(const Call& call)
    {
        const bool isCompact = call.arguments() == 3;
        const JsonValue* const document = find(call);
        if (document == nullptr)
            return false;
        if (isCompact && String(call[3]) != L"compact")
            return call.fail(L"'%s' is no form: compact is one", call[3]);
        return saveJson(call, call[2], *document, !isCompact);
    }

    bool same(const Call& call)
    {
        JsonValue left, right;
        if (!loadJson(call, call[1], left) || !loadJson(call, call[2], right))
            return false;
        if (!(left == right))
            return call.fail(L"they differ");
        call.say(L"they are equal");
        return true;
    }

    bool drop(const Call& call) { return find(call) != nullptr && _documents.erase(call[1]) == 1; }

    std::map<String, JsonValue> _documents;
};

} // namespace

Handle_T<AppBox> createDocumentsBox(const wchar_t* appName, const wchar_t* parameters)
{
    return new DocumentsBox(appName, parameters);
}

} // namespace apphost
