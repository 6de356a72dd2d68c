// Loads the library into a program that is not linked to it, uses it a little, and unloads it.
#include <dlfcn.h>

#include <csignal>
#include <cstdio>

/** What handles a signal: a sanitizer has a handler of its own for some. */
static void* handlerOf(int signal)
{
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return reinterpret_cast<void*>(action.sa_handler);
}

int main(int, char** argv)
{
    void* const before = handlerOf(SIGSEGV);
    const char* mistake = nullptr;
    for (int round = 0; round < 2 && mistake == nullptr; ++round) {
        void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            mistake = dlerror();
            break;
        }
        // orvi::setCodePage(char const*) and orvi::handled_exception_filter(char const*)
        auto* setCodePage =
            reinterpret_cast<bool (*)(const char*)>(dlsym(library, "_ZN4orvi11setCodePageEPKc"));
        auto* handleExceptions =
            reinterpret_cast<void (*)(const char*)>(dlsym(library, "_ZN4orvi24handled_exception_filterEPKc"));
        if (setCodePage == nullptr || !setCodePage("latin1"))
            mistake = "the library does not answer";
        else if (handleExceptions == nullptr || (handleExceptions(nullptr), handlerOf(SIGSEGV) == before))
            mistake = "the library does not handle faults";
        dlclose(library);
        if (dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != nullptr)
            mistake = "the library stays loaded";
        else if (handlerOf(SIGSEGV) != before)
            mistake = "the library leaves its signal handlers behind";
    }
    std::fputs(mistake != nullptr ? mistake : "", stderr);
    return mistake != nullptr ? 1 : 0;
}
