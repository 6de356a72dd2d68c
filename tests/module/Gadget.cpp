// A module that a test loads by DllModule: it can be asked, and it tells when it goes.
#include <orvi/core/Export.h>

namespace {

int* g_goodbyes = nullptr;

struct Goodbye {
    ~Goodbye()
    {
        if (g_goodbyes != nullptr)
            ++*g_goodbyes;
    }
} g_goodbye;

} // namespace

extern "C" ORVI_API int gadgetAnswer() { return 42; }
extern "C" ORVI_API void gadgetCountGoodbyes(int* goodbyes) { g_goodbyes = goodbyes; }
