#include "Apps.h"
#include "CommandBox.h"
#include "Import.h"
#include "Source.h"

#include <map>

namespace apphost {

using orvi::AppBox;
using orvi::Handle_T;
using orvi::JsonValue;
using orvi::String;

namespace {

/** Objects with properties at work: a team's tasks, made and changed by the names of their properties, saved as
    JSON and loaded again. */
class ObjectsBox : public CommandBox {
public:
    ObjectsBox(const String& appName, const String& parameters)
        : CommandBox(appName, parameters,
                     {
                         {L"classes", L"[CLASS]", L"the classes, or the properties of one", 0, 1,
                          method(this, &ObjectsBox::classes)},
                         {L"create", L"NAME CLASS", L"an object, in place of an older one", 2, 2,
                          method(this, &ObjectsBox::create)},
                         {L"read", L"NAME JSON", L"an object from its text", 2, anyNumber,
                          method(this, &ObjectsBox::read)},
                         {L"list", L"", L"the objects", 0, 0, method(this, &ObjectsBox::list)},
                         {L"show", L"NAME", L"an object as JSON", 1, 1, method(this, &ObjectsBox::show)},
                         {L"edit", L"NAME PROPERTY JSON", L"give a property a value", 3, anyNumber,
                          method(this, &ObjectsBox::edit)},
                         {L"clear", L"NAME PROPERTY", L"let the object in a property go", 2, 2,
                          method(this, &ObjectsBox::clear)},
                         {L"clone", L"NAME NEW-NAME", L"a copy with all that it holds", 2, 2,
                          method(this, &ObjectsBox::clone)},
                         {L"save", L"NAME FILE", L"write it as JSON, in place of an older file", 2, 2,
                          method(this, &ObjectsBox::save)},
                         {L"load", L"NAME FILE", L"an object from a file or another archive URL", 2, 2,
                          method(this, &ObjectsBox::load)},
                         {L"drop", L"NAME", L"let it go", 1, 1, method(this, &ObjectsBox::drop)},
                     })
    {}

private:
    static Handle_T<Record> make(const Call& call, const wchar_t* className)
    {
        Handle_T<Record> record = orvi::Unknown::RtFactory::createClassInstance(String(className));
        if (record.isNull())
            call.fail(L"'%s' is no class of the model: the command classes lists them", className);
        return record;
    }

    static void describe(const Call& call, const String& name, const Record& record)
    {
        call.say(L"%s: %s %s", name.getBuffer(), record.getClassName().getBuffer(),
                 record.summary().getBuffer());
    }

    bool keep(const Call& call, const wchar_t* name, const Handle_T<Record>& record)
    {
        _records[name] = record;
        describe(call, name, *record);
        return true;
    }

    /** Null when there is none of this name; the client knows. */
    Handle_T<Record> find(const Call& call)
    {
        const auto found = _records.find(call[1]);
        if (found != _records.end())
            return found->second;
        call.fail(L"no object '%s': the command list tells them", call[1]);
        return {};
    }

    bool classes(const Call& call)
    {
        if (call.arguments() == 1)
            return listProperties(call);
        std::vector<String> names;
        orvi::Unknown::RtFactory::getRtClassNames(names);
        for (const String& name : names) {
            if (!Handle_T<Record>(orvi::Unknown::RtFactory::createClassInstance(name)).isNull())
                call.say(L"%s", name.getBuffer());
        }
        return true;
    }

    static bool listProperties(const Call& call)
    {
        const Handle_T<Record> record = make(call, call[1]);
        if (record.isNull())
            return false;
        for (const auto& [key, attribute] : record->getPropertyAttributes()) {
            const String& description = attribute->getDescription();
            call.say(description.isEmpty() ? L"%s: %s" : L"%s: %s, %s", key.getBuffer(),
                     attribute->getPropertyType().getBuffer(), description.getBuffer());
        }
        return true;
    }

    bool create(const Call& call)
    {
        const Handle_T<Record> record = make(call, call[2]);
        return !record.isNull() && keep(call, call[1], record);
    }

    bool read(const Call& call)
    {
        JsonValue document;
        return parseJson(call, call.tail(2), document) && keepNew(call, document);
    }

    bool load(const Call& call)
    {
        JsonValue document;
        return loadJson(call, call[2], document) && keepNew(call, document);
    }

    bool keepNew(const Call& call, const JsonValue& document)
    {
        const Handle_T<Record> record = createRecord(call, document);
        return !record.isNull() && keep(call, call[1], record);
    }

    bool list(const Call& call)
    {
        for (const auto& [name, record] : _records)
            describe(call, name, *record);
        return true;
    }

    bool show(const Call& call)
    {
        const Handle_T<Record> record = find(call);
        JsonValue document;
        if (record.isNull())
            return false;
        record->exportProperty(document);
        return sayJson(call, document, true);
    }

    bool edit(const Call& call)
    {
        const Handle_T<Record> record = find(call);
        JsonValue value;
        if (record.isNull() || !parseJson(call, call.tail(3), value))
            return false;
        JsonValue document;
        document[call[2]].swap(value);
        const Handle_T<Record> changed = changeRecord(call, *record, document);
        return !changed.isNull() && keep(call, call[1], changed);
    }

    /** In a document a null leaves an object in its place: only the attribute itself takes it out. */
    bool clear(const Call& call)
    {
        const Handle_T<Record> record = find(call);
        if (record.isNull())
            return false;
        const auto& attributes = record->getPropertyAttributes();
        const auto found = attributes.find(call[2]);
        if (found == attributes.end() || found->second->isUnitProperty())
            return call.fail(L"'%s' is no property that holds one object", call[2]);
        found->second->set(record, found->second->getPropertyConverter(), JsonValue());
        return keep(call, call[1], record);
    }

    bool clone(const Call& call)
    {
        const Handle_T<Record> record = find(call);
        if (record.isNull())
            return false;
        const Handle_T<Record> copy = record->clone();
        return copy.isNull() ? call.fail(L"it cannot be copied") : keep(call, call[2], copy);
    }

    bool save(const Call& call)
    {
        const Handle_T<Record> record = find(call);
        JsonValue document;
        if (record.isNull())
            return false;
        record->exportProperty(document);
        return saveJson(call, call[2], document, true);
    }

    bool drop(const Call& call) { return !find(call).isNull() && _records.erase(call[1]) == 1; }

    std::map<String, Handle_T<Record>> _records;
};

} // namespace

Handle_T<AppBox> createObjectsBox(const wchar_t* appName, const wchar_t* parameters)
{
    return new ObjectsBox(appName, parameters);
}

} // namespace apphost
