#include "GuardRecord.h"

#include <atomic>
#include <cxxabi.h>
#include <ucontext.h>
#include <unwind.h>

#if defined(__SANITIZE_ADDRESS__)
#define ORVI_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORVI_ADDRESS_SANITIZER
#endif
#endif
#ifdef ORVI_ADDRESS_SANITIZER
extern "C" void __asan_handle_no_return(); // NOLINT(bugprone-reserved-identifier): the sanitizer's own
#endif

namespace orvi::platform {

[[gnu::tls_model("initial-exec")]] thread_local constinit GuardRecord* t_guard = nullptr;

} // namespace orvi::platform

using orvi::platform::GuardRecord;
using orvi::platform::t_guard;

extern "C" [[gnu::visibility("hidden")]] int orvi_guard_trampoline(void (*step)(void*), void* argument,
                                                                   std::uintptr_t* place);

/** Asked by the unwinder whether the trampoline wants an exception: never, but now the stack of the throw is whole. */
extern "C" [[gnu::visibility("hidden"), gnu::used]] _Unwind_Reason_Code
orvi_guard_personality(int version, _Unwind_Action actions, _Unwind_Exception_Class, _Unwind_Exception*,
                       _Unwind_Context*)
{
    if (version != 1)
        return _URC_FATAL_PHASE1_ERROR;
    GuardRecord* guard = t_guard;
    const bool isSearch = (actions & _UA_SEARCH_PHASE) != 0; // a cancelled thread unwinds without one
    if (isSearch && guard != nullptr && !guard->isFiltering) {
        ucontext_t here;
        getcontext(&here);
        guard->isFiltering = true;
        guard->declined = !orvi::platform::filterFault({orvi::platform::thrownObject, 0, 0, 0, &here});
        guard->isFiltering = false;
    }
    return _URC_CONTINUE_UNWIND;
}

namespace orvi::platform {
namespace {

/** Puts a record on the thread's chain for a scope. */
class Link {
public:
    explicit Link(GuardRecord& record) noexcept { t_guard = &record; }
    ~Link() { t_guard = t_guard->outer; }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
};

} // namespace

// UBSan takes the exception of a cancelled thread, which is none of C++, for a null reference.
__attribute__((no_sanitize("undefined"))) unsigned long runInGuard(void (*step)(void*), void* argument,
                                                                   void (*report)())
{
    GuardRecord record{{}, t_guard, 0, false, false};
    const Link link(record);
    try {
        if (orvi_guard_trampoline(step, argument, record.place) != 0) {
#ifdef ORVI_ADDRESS_SANITIZER
            __asan_handle_no_return(); // frames went without their ends
#endif
        }
        return record.code;
    } catch (abi::__forced_unwind&) { // a thread being cancelled has to unwind
        throw;
    } catch (...) {
        if (record.declined) {
            if (record.outer != nullptr)
                record.outer->declined = true; // which has not been asked: this record was on top
            throw;
        }
        report();
        return thrownObject;
    }
}

} // namespace orvi::platform
