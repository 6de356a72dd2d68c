#include "AppTables.h"

#include <orvi/core/App.h>

#include "base/Immortal.h"
#include "diagnostics/Notice.h"

#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <utility>

namespace orvi {

namespace {

void shutDownAll();

using Apps = std::map<String, Handle_T<App>, std::less<>>;

struct Tables {
    Mutex mutex; // before the lock of a box's pipes; not held while a factory runs or a thread is waited for
    std::map<String, AppFactory, std::less<>> factories; // transparent: to look up takes no memory
    Apps apps;                                           // by application name
    // Every box that runs under startApp: a name used twice hides the first box from the table above.
    std::map<AppBox*, Handle_T<Thread>> running;
};

Tables& tables()
{
    static Immortal<Tables> tables;
    static const bool registered = std::atexit(shutDownAll) == 0;
    static_cast<void>(registered);
    return *tables;
}

const bool g_initialised = (tables(), true);

/** The boxes one after the other, as they are then: by address, for the table changes on the way and a list of them would
    take memory. */
class RunningApps {
public:
    /** False when there are no more. */
    bool next(Handle_T<AppBox>& box, Handle_T<Thread>& thread)
    {
        Tables& all = tables();
        const MutexGuard guard(all.mutex);
        const auto entry = all.running.upper_bound(_last);
        if (entry == all.running.end())
            return false;
        _last = entry->first;
        box = entry->first; // its thread holds it until it has left the table
        thread = entry->second;
        return true;
    }

private:
    AppBox* _last = nullptr;
};

void shutDownAll()
{
    Handle_T<AppBox> box;
    Handle_T<Thread> thread;
    // All are asked before the first is waited for: that takes as long as the slowest, not as all of them.
    for (RunningApps asked; asked.next(box, thread);)
        box->shutdown();
    for (RunningApps awaited; awaited.next(box, thread);)
        thread->shutdown();
    box.setNull();
    Tables& all = tables();
    const MutexGuard guard(all.mutex);
    all.apps.clear();
    all.factories.clear();
}

} // namespace

void AppTables::leave(AppBox* box)
{
    Tables& all = tables();
    Handle_T<Thread> thread; // released behind the lock, when nothing is held any more
    const MutexGuard guard(all.mutex);
    all.apps.erase(box->getAppName());
    const auto found = all.running.find(box);
    if (found == all.running.end())
        return;
    thread = std::move(found->second);
    all.running.erase(found);
}

bool setUpApp(const wchar_t* name, AppFactory factory)
{
    Tables& all = tables();
    const String key(name);
    if (key != name)
        throw std::bad_alloc(); // or it would be registered without a name
    {
        const MutexGuard guard(all.mutex);
        const auto [entry, isNew] = all.factories.emplace(key, factory);
        if (isNew || entry->second == factory)
            return true;
    }
    printNotice(L"\nApp: (%s) has been setup!", name);
    return false;
}

void tearDownApp(const wchar_t* name)
{
    Tables& all = tables();
    const MutexGuard guard(all.mutex);
    if (const auto found = all.factories.find(name); found != all.factories.end())
        all.factories.erase(found);
}

namespace {

bool isText(const wchar_t* text) { return text != nullptr && *text != 0; }

Handle_T<App> start(AppFactory factory, const wchar_t* appName, const wchar_t* parameters)
{
    Tables& all = tables();
    const Handle_T<Thread> thread = Thread::createInstance();
    const Handle_T<AppBox> box = factory(appName, parameters);
    if (box.isNull() || (box->getAppName().isEmpty() && isText(appName))) // nobody would find it
        return {};
    // All before the start: behind it nothing may fail, and a box that ends at once still greets this client and takes
    // leave of it.
    const Handle_T<App> client = App::createInstance(thread, box);
    Apps entry;
    entry.emplace(box->getAppName(), App::createInstance(thread, box));
    Apps::insert_return_type result; // what is left over goes after the lock
    bool isNew = false;
    {
        const MutexGuard guard(all.mutex);
        isNew = all.running.emplace(box, thread).second;
    }
    if (!thread->start(box)) {
        const MutexGuard guard(all.mutex);
        if (isNew)
            all.running.erase(box);
        return {};
    }

    const MutexGuard guard(all.mutex);
    if (all.running.count(box) == 0) // it has ended already, and would stay in the table for ever
        return client;
    result = all.apps.insert(entry.extract(entry.begin()));
    if (!result.inserted)
        std::swap(result.position->second, result.node.mapped());
    return client;
}

} // namespace

Unknown::Handle_T<App> startApp(const wchar_t* factoryName, const wchar_t* appName, const wchar_t* parameters)
{
    Tables& all = tables();
    AppFactory factory = nullptr;
    {
        const MutexGuard guard(all.mutex);
        const auto found = all.factories.find(factoryName);
        if (found == all.factories.end())
            return {};
        factory = found->second;
    }
    try {
        return start(factory, appName, parameters);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

Unknown::Handle_T<App> getApp(const wchar_t* appName)
{
    Tables& all = tables();
    const MutexGuard guard(all.mutex);
    const auto found = all.apps.find(appName);
    if (found == all.apps.end())
        return {};
    return App::createInstance(found->second->getThread(), found->second->getAppBox());
}

void exitApp(App* app)
{
    if (app != nullptr && app->getThread() != nullptr)
        app->getThread()->shutdown();
}

} // namespace orvi
