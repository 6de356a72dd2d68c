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
    for (int round = 0; round < 2; ++round) {
        void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            return 1;
        }
        // orvi::setCodePage(char const*) and orvi::nothing(...)
        auto* setCodePage =
            reinterpret_cast<bool (*)(const char*)>(dlsym(library, "_ZN4orvi11setCodePageEPKc"));
        if (setCodePage == nullptr || !setCodePage("latin1")) {
            std::fprintf(stderr, "the library does not answer\n");
            return 1;
        }
        // orvi::handled_exception_filter(char const*)
        auto* handleExceptions =
            reinterpret_cast<void (*)(const char*)>(dlsym(library, "_ZN4orvi24handled_exception_filterEPKc"));
        if (handleExceptions == nullptr || (handleExceptions(nullptr), handlerOf(SIGSEGV) == before)) {
            std::fprintf(stderr, "the library does not handle faults\n");
            return 1;
        }
        dlclose(library);
        if (dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != nullptr) {
            std::fprintf(stderr, "the library stays loaded\n");
            return 1;
        }
        if (handlerOf(SIGSEGV) != before) {
            std::fprintf(stderr, "the library leaves its signal handlers behind\n");
            return 1;
        }
    }
    return 0;
}
