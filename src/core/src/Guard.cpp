#include "Guard.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>
#include <orvi/core/Unknown.h>

#include "platform/FaultGuard.h"

#include <cxxabi.h>
#include <exception>

namespace orvi {

namespace {

/** Tells the log what is being handled. */
void reportThrown()
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

} // namespace

unsigned long runGuarded(void (*step)(void*), void* argument)
{
    return platform::runInGuard(step, argument, reportThrown);
}

} // namespace orvi
