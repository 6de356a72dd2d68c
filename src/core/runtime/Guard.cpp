#include "Guard.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>
#include <orvi/core/Unknown.h>

#include "platform/diagnostics/FaultGuard.h"
#include "platform/runtime/LoopWait.h"

#include <cxxabi.h>
#include <exception>
#include <new>

namespace orvi {

namespace {

/** Tells the log what is being handled. */
void tellLog()
{
    try {
        throw;
    } catch (const Exception& exception) {
        exception.report();
    } catch (const std::exception& exception) {
        Log::error(L"System: a tick threw %s: %S", typeName(typeid(exception)).getBuffer(), exception.what());
    } catch (...) {
        const std::type_info* type = abi::__cxa_current_exception_type();
        Log::error(L"System: a tick threw %s",
                   type != nullptr ? typeName(*type).getBuffer() : L"a foreign exception");
    }
}

void reportThrown()
{
    try {
        tellLog();
    } catch (abi::__forced_unwind&) { // a thread being cancelled has to unwind
        throw;
    } catch (const std::bad_alloc&) {
        Log::error(L"System: a tick threw, and there is no memory to tell what");
    } catch (...) {
        // Listeners of the log may throw: the loop shall go on without the report.
    }
}

} // namespace

unsigned long runGuarded(void (*step)(void*), void* argument)
{
    const unsigned long code = platform::runInGuard(step, argument, reportThrown);
    if (code != 0)
        platform::WakeLater::forget();
    return code;
}

} // namespace orvi
