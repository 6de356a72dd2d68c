#include "AppTables.h"

#include <orvi/core/App.h>

#include "Immortal.h"
#include "Notice.h"

#include <cstdlib>
#include <utility>
#include <vector>

namespace orvi {

namespace {

void shutDownAll();

struct Tables {
    Mutex mutex; // before the locks of a box; not held while a factory runs or a thread is waited for
    std::map<String, AppFactory> factories;
    std::map<String, Handle_T<App>> apps; // by application name
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

void shutDownAll()
{
    Tables& all = tables();
    std::vector<Handle_T<Thread>> threads;
    {
        const MutexGuard guard(all.mutex);
        for (const auto& entry : all.running)
            threads.push_back(entry.second);
    }
    for (const Handle_T<Thread>& thread : threads)
        thread->shutdown();
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
    {
        const MutexGuard guard(all.mutex);
        const auto [entry, isNew] = all.factories.emplace(name, factory);
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
    all.factories.erase(name);
}

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
    const Handle_T<Thread> thread = Thread::createInstance();
    const Handle_T<AppBox> box = factory(appName, parameters);
    if (box.isNull())
        return {};
    // Before the start: a box that ends at once still greets this client and takes leave of it.
    const Handle_T<App> client = App::createInstance(thread, box);
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

    Handle_T<App> replaced; // goes after the lock
    const MutexGuard guard(all.mutex);
    if (all.running.count(box) > 0) { // else it has ended already, and would stay in the table for ever
        Handle_T<App>& entry = all.apps[box->getAppName()];
        replaced = std::exchange(entry, App::createInstance(thread, box));
    }
    return client;
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
