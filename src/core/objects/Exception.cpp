#include <orvi/core/Exception.h>

#include <orvi/core/CallStack.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>

#include "diagnostics/CrashReporter.h"

namespace orvi {

Exception::Exception(const wchar_t* file, int line, const wchar_t* function, int code,
                     const wchar_t* description)
    : _file(file)
    , _line(line)
    , _function(function)
    , _code(code)
    , _description(description)
{}

Exception::Exception(const Exception& other) noexcept
    : _file(other._file)
    , _line(other._line)
    , _function(other._function)
    , _code(other._code)
    , _description(other._description)
{
    setCallStack(other._callStack);
}

Exception& Exception::operator=(const Exception& other) noexcept
{
    _file = other._file;
    _line = other._line;
    _function = other._function;
    _code = other._code;
    _description = other._description;
    setCallStack(other._callStack);
    return *this;
}

Exception::~Exception() { setCallStack(nullptr); }

void Exception::report() const
{
    Log::error(L"%s", description());
    if (_callStack != nullptr) {
        DumpCallStack_Log lines;
        _callStack->dump(lines);
    }
}

void Exception::setCallStack(CallStack* callStack) noexcept
{
    if (callStack != nullptr)
        callStack->addRef();
    if (_callStack != nullptr)
        _callStack->destroy();
    _callStack = callStack;
}

long Exception::DealExceptionInformation(_EXCEPTION_POINTERS* pointers)
{
    if (pointers == nullptr)
        return crash_exception_filter(nullptr);
    const platform::Fault fault{platform::faultCode(pointers->signal, pointers->code), pointers->signal,
                                pointers->code, reinterpret_cast<std::uintptr_t>(pointers->address),
                                pointers->context};
    return crash_exception_filter(&fault);
}

Exception makeException(const char* file, int line, const char* function, int code,
                        const wchar_t* description)
{
    return Exception(StringHelper::utf8ToWide(file), line, StringHelper::utf8ToWide(function), code,
                     description);
}

} // namespace orvi
