#include "Apps.h"
#include "CommandBox.h"
#include "Note.h"

#include <orvi/core/Buffer.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Time.h>

#include <limits>
#include <map>

namespace apphost {

using orvi::AppBox;
using orvi::Buffer;
using orvi::Handle_T;
using orvi::MemoryStream;
using orvi::String;
using orvi::Unknown;

namespace {

/** The registry of classes at work: makes objects, keeps them under numbers, sends them over a stream. */
class ClassesBox : public CommandBox {
public:
    ClassesBox(const String& appName, const String& parameters)
        : CommandBox(
              appName, parameters,
              {
                  {L"list", L"", L"the registered classes and their ids", 0, 0,
                   method(this, &ClassesBox::list)},
                  {L"create", L"NAME | 0xID", L"an object of a class", 1, 1,
                   method(this, &ClassesBox::create)},
                  {L"note", L"TITLE TEXT...", L"a note: an object with a state", 2, anyNumber,
                   method(this, &ClassesBox::note)},
                  {L"show", L"[OBJECT]", L"an object by its number, or all", 0, 1,
                   method(this, &ClassesBox::show)},
                  {L"clone", L"OBJECT", L"a copy of an object", 1, 1, method(this, &ClassesBox::clone)},
                  {L"drop", L"OBJECT", L"let an object go", 1, 1, method(this, &ClassesBox::drop)},
                  {L"write", L"OBJECT", L"an object as it goes over a stream", 1, 1,
                   method(this, &ClassesBox::write)},
                  {L"read", L"HEX", L"an object back from those bytes", 1, 1,
                   method(this, &ClassesBox::read)},
              })
    {}

private:
    void describe(const Call& call, int number, const Unknown& object) const
    {
        const auto* note = dynamic_cast<const Note*>(&object);
        String state;
        if (note != nullptr)
            state.format(L", '%s', '%s', written %s", note->getTitle().getBuffer(),
                         note->getText().getBuffer(),
                         orvi::Time(note->getWritten()).convertToString(true).getBuffer());
        call.say(L"object %d: %s%s", number, object.getClassName().getBuffer(), state.getBuffer());
    }

    void keep(const Call& call, const Handle_T<Unknown>& object)
    {
        _objects[++_lastNumber] = object;
        describe(call, _lastNumber, *object);
    }

    /** The end of `_objects` when there is none of this number; the client knows. */
    std::map<int, Handle_T<Unknown>>::iterator find(const Call& call)
    {
        const auto number = parseNumber(call[1]);
        const bool possible = number && *number >= 1 && *number <= _lastNumber;
        const auto found = possible ? _objects.find(static_cast<int>(*number)) : _objects.end();
        if (found == _objects.end())
            call.fail(L"no object '%s': the command show lists them", call[1]);
        return found;
    }

    bool list(const Call& call)
    {
        std::vector<String> names;
        Unknown::RtFactory::getRtClassNames(names);
        for (const String& name : names)
            call.say(L"0x%08x %s", Unknown::ClassType(name).getClassId(), name.getBuffer());
        return true;
    }

    bool create(const Call& call)
    {
        const bool isId = call[1][0] == L'0' && call[1][1] == L'x';
        const auto id = isId ? parseNumber(call[1] + 2, 16) : std::nullopt;
        Handle_T<Unknown> object;
        if (!isId)
            object = Unknown::RtFactory::createClassInstance(String(call[1]));
        else if (id && *id >= 0 && *id <= std::numeric_limits<unsigned int>::max())
            object = Unknown::RtFactory::createClassInstance(static_cast<unsigned int>(*id));
        if (object.isNull())
            return call.fail(L"no class '%s': the command list tells them", call[1]);
        keep(call, object);
        return true;
    }

    bool note(const Call& call)
    {
        keep(call, Note::createInstance(call[1], call.rest(2)));
        return true;
    }

    bool show(const Call& call)
    {
        if (call.arguments() == 0) {
            for (const auto& [number, object] : _objects)
                describe(call, number, *object);
            return true;
        }
        const auto found = find(call);
        if (found == _objects.end())
            return false;
        describe(call, found->first, *found->second);
        return true;
    }

    bool clone(const Call& call)
    {
        const auto found = find(call);
        if (found == _objects.end())
            return false;
        const Handle_T<Unknown> copy = found->second->clone();
        if (copy.isNull())
            return call.fail(L"it cannot be cloned");
        keep(call, copy);
        return true;
    }

    bool drop(const Call& call)
    {
        const auto found = find(call);
        if (found == _objects.end())
            return false;
        _objects.erase(found);
        return true;
    }

    bool write(const Call& call)
    {
        const auto found = find(call);
        if (found == _objects.end())
            return false;
        const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
        orvi::OutputStream output(stream);
        output << found->second;
        Buffer bytes(stream->available());
        stream->read(bytes.getBuffer(), bytes.getBufferSize());
        call.say(L"%s", bytes.convertToHex().getBuffer());
        return true;
    }

    bool read(const Call& call)
    {
        Buffer bytes;
        if (!bytes.convertFromHex(call[1]))
            return call.fail(L"'%s' is not hexadecimal", call[1]);
        const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
        stream->write(bytes.getBuffer(), bytes.getBufferSize());
        orvi::InputStream input(stream);
        Handle_T<Unknown> object;
        input >> object; // throws an Exception when bytes are missing or make no sense
        if (object.isNull())
            return call.fail(L"the bytes stand for no object");
        if (stream->available() > 0)
            return call.fail(L"%d bytes are left over", stream->available());
        keep(call, object);
        return true;
    }

    std::map<int, Handle_T<Unknown>> _objects;
    int _lastNumber = 0;
};

} // namespace

Handle_T<AppBox> createClassesBox(const wchar_t* appName, const wchar_t* parameters)
{
    return new ClassesBox(appName, parameters);
}

} // namespace apphost
