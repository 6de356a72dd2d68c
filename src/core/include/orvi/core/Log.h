#pragma once
#include <orvi/core/Export.h>

namespace orvi {

/** A sink for the lines of Log: implement it and register it with Log::addListener.

    Called one line at a time, on the thread that logs, with the log locked: do not wait for a thread that
    might be logging, and do not add or remove listeners. Lines that a listener logs itself are dropped; what
    it throws is ignored. `text` is the finished line without time, level or line end, and lives for the
    call. */
class ORVI_API LogListener {
public:
    /** The name by which getLogListener and setparam find this listener. */
    virtual const wchar_t* getName() = 0;
    /** Applies settings, in a syntax of the listener's own. */
    virtual bool setparam(const wchar_t* parameters) = 0;
    virtual void error(const wchar_t* text) = 0;
    virtual void warning(const wchar_t* text) = 0;
    virtual void message(const wchar_t* text) = 0;
    virtual void debug(const wchar_t* text) = 0;
    /** The step that the last progress line announced has worked, or not. */
    virtual void whistle(bool success) = 0;

    virtual ~LogListener() = default;
};

/** The library's one way to say something: formats a line and hands it to every listener, in the order of
    their registration. Formats follow String::format. Without a listener the arguments are not even read.

    Any thread may log at any time, also before and after the library's own start and end, when nothing
    happens. A line of up to 32,767 characters needs no heap but 64 KiB of stack; a longer one for which there
    is no memory is dropped. */
class ORVI_API Log {
public:
    Log() = delete;

    static void error(const wchar_t* format, ...);
    static void warning(const wchar_t* format, ...);
    static void message(const wchar_t* format, ...);
    static void debug(const wchar_t* format, ...);
    static void whistle(bool success);

    /** Registers a listener, which stays the caller's and must live until it is removed. Null and a listener
        that is registered already are ignored. */
    static void addListener(LogListener* listener);
    static void removeListener(LogListener* listener);

    /** The first listener of exactly this name; null when there is none. */
    static LogListener* getLogListener(const wchar_t* name);

    /** `name@parameters`: hands the parameters to the listener of that name and gives its answer; false
        without an "@" or such a listener. */
    static bool setparam(const wchar_t* text);
};

} // namespace orvi
