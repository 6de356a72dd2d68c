#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

namespace orvi {

struct CallStack;

/** What a signal handler of a client knows of a fault, from the arguments that the system gives it. */
struct _EXCEPTION_POINTERS { // NOLINT(bugprone-reserved-identifier): the name that users of the library know
    int signal;
    int code;            // si_code
    const void* address; // si_addr
    const void* context; // the ucontext_t
};

/** The library's one exception: where it was thrown, a code (-1 from the library itself) and what went wrong.

    Thrown by value through THROW_EXCEPTION, caught by reference. Making one logs nothing and takes no call
    stack; who catches it calls report(). Ordinary operations do not throw: they report by their results and
    by Log. */
class ORVI_API Exception {
public:
    /** Copies the three texts, which must not be null. */
    Exception(const wchar_t* file, int line, const wchar_t* function, int code, const wchar_t* description);
    Exception(const Exception& other) noexcept;
    Exception& operator=(const Exception& other) noexcept;
    ~Exception();

    /** Source file of the throw, relative to the repository for the library's own. */
    const wchar_t* file() const noexcept { return _file; }
    int line() const noexcept { return _line; }
    /** Full signature of the throwing function, as the compiler spells it. */
    const wchar_t* function() const noexcept { return _function; }
    int code() const noexcept { return _code; }
    const wchar_t* description() const noexcept { return _description; }

    /** Writes the description to Log::error and, when a call stack is attached, its lines to Log::debug. */
    void report() const;

    /** Writes the report of the process on a fault, as CrashReporter.h tells. 1: handled, go on or end as you see fit; 0:
        a debugger is at hand, leave it to that. May be called in a signal handler. Null: a report on the caller. */
    static long DealExceptionInformation(_EXCEPTION_POINTERS* pointers);

    /** Attaches a stack for report(), in place of an earlier one; holds a reference of its own. Null
        detaches. */
    void setCallStack(CallStack* callStack) noexcept;

private:
    String _file;
    int _line;
    String _function;
    int _code;
    String _description;
    CallStack* _callStack = nullptr;
};

/** What THROW_EXCEPTION builds its exception with: the place as the compiler spells it, in UTF-8. */
ORVI_API Exception makeException(const char* file, int line, const char* function, int code,
                                 const wchar_t* description);

} // namespace orvi

/** Throws an Exception with this place in the source. `description` is wide text or a String. Expands to

        throw ::orvi::makeException(__FILE__, __LINE__, __PRETTY_FUNCTION__, code, description)  */
#define THROW_EXCEPTION(code, description) \
    throw ::orvi::makeException(__FILE__, __LINE__, __PRETTY_FUNCTION__, code, description)
