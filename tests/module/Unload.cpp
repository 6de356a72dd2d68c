// Loads the library into a program that is not linked to it, uses it a little, and unloads it.
#include <dlfcn.h>

#include <cstdio>

int main(int, char** argv)
{
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
        dlclose(library);
        if (dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != nullptr) {
            std::fprintf(stderr, "the library stays loaded\n");
            return 1;
        }
    }
    return 0;
}
