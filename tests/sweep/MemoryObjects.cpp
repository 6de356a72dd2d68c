#include "MemorySweep.h"

#include <memory>

#include <dlfcn.h>

using namespace orvi;
using sweep::Seen;

namespace {

using Registry = Unknown::RtFactory;

void registry(Seen& seen)
{
    const String message(L"Message"), nobody(L"Nobody");
    Seen::must(!message.isEmpty() && !nobody.isEmpty());
    const auto byId = Registry::createClassInstance(Event::getClassId_());
    Seen::must(!byId.isNull());
    seen << byId->getClassName();
    std::vector<String> names;
    Registry::getRtClassNames(names);
    for (const String& name : names)
        seen << name;
    const auto type = Unknown::ClassType(message);
    const auto made = type.createInstance();
    Seen::must(!made.isNull());
    seen << type.getClassName() << type.getClassId() << made->getClassName();
    seen << Registry::createClassInstance(nobody).isNull();
}

class Late : public Unknown {
    ORVI_DECLARE_CLASS(Late);

public:
    static bool join() { return Registry::setupCreator(rtCreateInstance_); }
};
ORVI_DEFINE_CLASS(Late);

void registration(Seen& seen)
{
    try {
        Registry::unsetupCreator(Late::g_className_);
    } catch (const std::bad_alloc&) {
        seen << "a class cannot leave";
    }
    seen << Registry::createClassInstance(Late::g_className_).isNull()
         << Registry::createClassInstance(Late::g_classId_).isNull();
    bool joined = false;
    try {
        joined = Late::join();
    } catch (const std::bad_alloc&) {
    }
    const bool byName = !Registry::createClassInstance(Late::g_className_).isNull();
    const bool byId = !Registry::createClassInstance(Late::g_classId_).isNull();
    Seen::must(joined && byName && byId);
    seen << joined;
}

/** A class is there as long as its module and no longer, and a module that has loaded well has it. */
template <class Load, class Unload>
void module(Seen& seen, bool mayLack, Load load, Unload unload)
{
    const String names[] = {L"Guest", L"Luggage"};
    Seen::must(!names[0].isEmpty() && !names[1].isEmpty());
    const auto count = [&] {
        int found = 0;
        for (const String& name : names) {
            found += Registry::createClassInstance(name).isNull() ? 0 : 1;
            found += Registry::createClassInstance(Unknown::ClassType(name).getClassId()).isNull() ? 0 : 1;
        }
        return found + (PropertyFactory::getPropertyConverter(names[1]) != nullptr ? 1 : 0);
    };
    int found = 0;
    bool hasMemory = load();
    String text;
    if (hasMemory) {
        try {
            found = count();
            const Handle_T<Property> luggage = Registry::createClassInstance(names[1]);
            text = luggage.isNull() ? String() : PropertyHelper::convertToString(luggage, false);
        } catch (const std::bad_alloc&) {
            hasMemory = false;
        }
        unload();
    }
    seen << count();
    Seen::must(hasMemory && (found == 5 || mayLack));
    Seen::must(!mayLack || Seen::errors == 0); // the log tells what did not join
    seen << found;
    Seen::mustNotHaveLogged();
    seen << text;
}

void rawModule(Seen& seen)
{
    void* library = nullptr;
    module(
        seen, true, [&] { return (library = dlopen(SWEEP_MODULE, RTLD_NOW | RTLD_LOCAL)) != nullptr; },
        [&] { dlclose(library); });
    seen << (dlopen(SWEEP_MODULE, RTLD_NOW | RTLD_NOLOAD) == nullptr);
}

void loadedModule(Seen& seen)
{
    const auto guest = DllModule::createInstance();
    module(
        seen, false, [&] { return guest->load(StringHelper::utf8ToWide(SWEEP_MODULE)); },
        [&] { guest->unload(); });
    const bool loaded = guest->load(StringHelper::utf8ToWide(SWEEP_GADGET));
    seen << (loaded == !guest->getFileName().isEmpty());
    const bool found = loaded && guest->getProcAddress(L"gadgetAnswer") != nullptr;
    guest->unload();
    Seen::must(found);
}

using Stack = std::unique_ptr<CallStack, void (*)(CallStack*)>;
Stack captured(CallStack* (*capture)())
{
    return {capture(), [](CallStack* it) { it->destroy(); }};
}

void exceptions(Seen& seen)
{
    const Stack stack = captured(CallStack::getCallStack_fast);
    Seen::must(stack != nullptr);
    try {
        THROW_EXCEPTION(5, L"a description");
    } catch (Exception& exception) {
        exception.setCallStack(stack.get());
        const Exception copy(exception);
        seen << copy.code();
        Seen::must(copy.description()[0] != 0 && copy.file()[0] != 0 && copy.function()[0] != 0);
        seen << copy.description() << copy.file() << copy.function() << copy.line();
        copy.report();
    }
}

void callStacks(Seen& seen)
{
    struct Lines : CallStack::Callback {
        void report(const char*) override { ++count; }
        int count = 0;
    };
    for (CallStack* (*const capture)() : {CallStack::getCallStack_fast, CallStack::getCallStack}) {
        Lines lines;
        captured(capture)->dump(lines);
        seen << (lines.count > 0);
    }
}

int opened = 0;
void onOpened(const Event*) { ++opened; }
void onClosed(const Event*) {}

struct Room {
    int events = 0;
    void onEvent(const Event*) { ++events; }
};

void events(Seen& seen)
{
    Room room;
    opened = 0;
    EventDispenser dispenser;
    seen << dispenser.addEventHandler(EventHandler::of<Event>(&onOpened));
    dispenser += EventHandler::of<Event>(&room, &Room::onEvent);
    dispenser += EventHandler::of<Event>(&onClosed);
    dispenser += EventHandler::of<Event>(&onOpened); // no second time
    EventDispenser copy = dispenser;
    const auto event = Event::createInstance();
    copy.sendEvent(event);
    seen << opened << room.events;
    copy -= EventHandler::of<Event>(&onOpened);
    dispenser.sendEvent(event);
    seen << opened << room.events;
}

void log(Seen& seen)
{
    Log::message(L"%s", L"short");
    Log::message(L"%*d", 40000, 1);
    Log::warning(L"%d %s %S", 5, L"wide", "narrow");
    seen << (Log::getLogListener(L"sweep") != nullptr) << (Log::getLogListener(L"nobody") == nullptr);
    struct Second : sweep::ErrorCounter {
        int lines = 0;
        const wchar_t* getName() override { return L"second"; }
        bool setparam(const wchar_t* text) override { return text[0] == L'x'; }
        void message(const wchar_t*) override { ++lines; }
    } second;
    try {
        Log::addListener(&second);
    } catch (const std::bad_alloc&) {
    }
    const bool added = Log::getLogListener(L"second") == &second;
    Log::message(L"line");
    const bool set = Log::setparam(L"second@x");
    Log::removeListener(&second);
    seen << (Log::getLogListener(L"second") == nullptr);
    Seen::must(added && set);
    seen << second.lines;
}

void console(Seen& seen)
{
    Console::output(L"%s %d\n", L"text", 5);
    Console::output(L"%*d\n", 40000, 1);
    seen << Console::setTitle(L"title") << Console::setTextAttribute(7) << Console::setCursorPosition(1, 1);
}

const sweep::Scenario scenarios[] = {
    {"exceptions", exceptions},
    {"class registry: questions", registry},
    {"class registry: registration", registration},
    {"modules: by dlopen", rawModule},
    {"modules: by DllModule", loadedModule},
    {"diagnostics: call stacks", callStacks},
    {"diagnostics: log", log},
    {"diagnostics: console", console},
    {"events", events},
};

} // namespace

const std::span<const sweep::Scenario> sweep::objectScenarios = scenarios;
