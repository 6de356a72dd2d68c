#include "Import.h"

#include "Source.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>
#include <orvi/core/PropertyHelper.h>

#include <thread>
#include <vector>

namespace apphost {

using orvi::Handle_T;
using orvi::JsonValue;
using orvi::String;

namespace {

constexpr std::size_t mostReports = 20;

/** Collects what this thread reports to the log, while it lives. */
class Reports : public orvi::LogListener {
public:
    Reports() { orvi::Log::addListener(this); }
    ~Reports() override { orvi::Log::removeListener(this); }
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    const wchar_t* getName() override { return L"reports"; }
    bool setparam(const wchar_t*) override { return false; }
    void error(const wchar_t* text) override { add(text); }
    void warning(const wchar_t* text) override { add(text); }
    void message(const wchar_t*) override {}
    void debug(const wchar_t*) override {}
    void whistle(bool) override {}

    bool empty() const { return _lines.empty(); }
    void tell(const Call& call) const
    {
        for (const String& line : _lines)
            call.say(L"the library reports: %s", line.getBuffer());
    }

private:
    void add(const wchar_t* text)
    {
        if (std::this_thread::get_id() == _thread && _lines.size() < mostReports)
            _lines.push_back(text);
    }

    const std::thread::id _thread = std::this_thread::get_id();
    std::vector<String> _lines;
};

bool isContainer(const JsonValue& value) { return value.isArray() || value.isObject(); }

/** Finds what a document says and the object made of it does not, though the log may be silent about it. */
class Losses {
public:
    void compareMembers(const JsonValue& given, const JsonValue& taken, const String& path)
    {
        for (const auto& [key, value] : given.getMembers()) {
            const auto found = taken.getMembers().find(key);
            const String place = path.isEmpty() ? key : path + L"." + key;
            if (key == orvi::TEXT_class)
                compareClasses(value, taken[key], place);
            else if (found == taken.getMembers().end())
                add(place, L"is no property");
            else
                compare(value, found->second, place);
        }
    }
    const std::vector<String>& lines() const { return _lines; }

private:
    void compare(const JsonValue& given, const JsonValue& taken, const String& path)
    {
        const bool hasClass = taken.getMembers().count(orvi::TEXT_class) == 1;
        if (hasClass && given.getMembers().count(orvi::TEXT_class) == 0)
            add(path, L"names no class: the object in it stays as it was");
        else if (taken.isNull() && !given.isNull())
            add(path, L"names no object that fits");
        else if (isContainer(given) ? given.type() != taken.type() : isContainer(taken))
            add(path, L"is of the wrong kind");
        else if (given.isObject())
            compareMembers(given, taken, path);
        else
            compareElements(given, taken, path);
    }
    void compareElements(const JsonValue& given, const JsonValue& taken, const String& path)
    {
        for (int i = 0; given.isArray() && i < given.size(); ++i)
            compare(given[i], taken[i], path + L"[" + orvi::convertToString(i) + L"]");
    }
    void compareClasses(const JsonValue& given, const JsonValue& taken, const String& path)
    {
        if (taken.isString() && !(given == taken)) // a value has none
            add(path, L"is not the class of what stands there");
    }
    void add(const String& path, const wchar_t* what)
    {
        if (_lines.size() < mostReports)
            _lines.push_back(path + L" " + what);
    }

    std::vector<String> _lines;
};

/** Whether all has arrived; says what has not. */
bool isWhole(const Call& call, const Reports& reports, const JsonValue& document, const Record& record)
{
    JsonValue taken;
    record.exportProperty(taken);
    Losses losses;
    losses.compareMembers(document, taken, L"");
    reports.tell(call);
    for (const String& line : losses.lines())
        call.say(L"%s", line.getBuffer());
    if (nestingOf(taken) > mostNesting)
        return call.fail(L"documents nest at most %d deep", mostNesting);
    return reports.empty() && losses.lines().empty();
}

void refuseClass(const Call& call, const Reports& reports, const JsonValue& name)
{
    reports.tell(call);
    if (name.isString())
        call.say(L"'%s' is no class of the model: the command classes lists them",
                 name.asString().getBuffer());
    else
        call.say(L"the document names no class: it wants {\"__class__\":\"Task\", ...}");
}

} // namespace

Handle_T<Record> createRecord(const Call& call, const JsonValue& document)
{
    const Reports reports;
    const Handle_T<orvi::Property> object = orvi::PropertyHelper::convertPropertyToClass(document);
    Handle_T<Record> record = object;
    if (!record.isNull() && isWhole(call, reports, document, *record))
        return record;
    if (record.isNull())
        refuseClass(call, reports, document[orvi::TEXT_class]);
    call.fail(L"no object has been made");
    return {};
}

Handle_T<Record> changeRecord(const Call& call, const Record& record, const JsonValue& document)
{
    const Handle_T<Record> changed = record.clone();
    const Reports reports;
    if (!changed.isNull()) {
        changed->importProperty(document);
        if (isWhole(call, reports, document, *changed))
            return changed;
    }
    call.fail(L"nothing has changed");
    return {};
}

} // namespace apphost
