#pragma once
#include <orvi/core/Export.h>

#include <atomic>
#include <cstdint>

namespace orvi {

/** The return addresses of the thread that captured it, innermost first: cheap to take and to keep, turned
    into lines only by dump(). Lives on the heap with a count of its own; a capture starts with one reference.
    It does not change after the capture, so threads may share one. */
struct ORVI_API CallStack {
    /** Receives the lines of dump(), UTF-8 without line ends. */
    class ORVI_API Callback {
    public:
        virtual void report(const char* line) = 0;
        virtual ~Callback() = default;
    };

    /** A capture through the debug module, across code without frame pointers too; empty without the module.
     */
    static CallStack* getCallStack();
    /** A capture along frame pointers, in nanoseconds; ends where code keeps none. */
    static CallStack* getCallStack_fast();

    void addRef() noexcept { _references.fetch_add(1); }
    /** Drops a reference; the last one frees the stack. */
    void destroy() noexcept;

    /** "Call Stack:" and a line for each frame: file, line and function where the debug module knows them. */
    void dump(Callback& callback) const;

    unsigned int size() const noexcept { return _count; }
    /** The return address number `index`, which must be below size(). */
    unsigned long operator[](unsigned int index) const noexcept;
    bool operator==(const CallStack& other) const noexcept;

private:
    static constexpr unsigned int blockSize = 32;
    struct Block {
        Block* next = nullptr;
        unsigned long frames[blockSize];
    };

    CallStack() = default;
    ~CallStack();
    void push(unsigned long address);

    std::atomic<unsigned int> _references = 1;
    unsigned int _count = 0;
    Block _first; // stacks of up to 32 frames are one allocation
    Block* _current = &_first;
    unsigned int _top = 0; // used slots of _current
};

/** Writes the lines to the debugger's output: standard error here. */
class ORVI_API DumpCallStack_VS : public CallStack::Callback {
public:
    void report(const char* line) override;
};

/** Writes each line to standard output, after a line end. */
class ORVI_API DumpCallStack_Console : public CallStack::Callback {
public:
    void report(const char* line) override;
};

/** Passes the lines to Log::debug. */
class ORVI_API DumpCallStack_Log : public CallStack::Callback {
public:
    void report(const char* line) override;
};

/** The binding of the debug module, liborvi_debug.so, which gives stacks their names. Made at the first call;
    what is missing is printed to standard output then, once, and never a failure. Any thread. */
class ORVI_API DebugHelper {
public:
    static const DebugHelper& getDebugHelper();

    DebugHelper(const DebugHelper&) = delete;
    DebugHelper& operator=(const DebugHelper&) = delete;

    /** Whether the debug module was found. */
    bool isLoaded() const noexcept { return _loaded; }

private:
    DebugHelper();

    bool _loaded;
};

} // namespace orvi
