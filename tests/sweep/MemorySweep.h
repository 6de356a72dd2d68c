#pragma once
#include <orvi/core/Core.h>

#include <atomic>
#include <span>

// Fails every single allocation of a scenario, one after the other, and looks at what becomes of it: the scenario
// says that it could not be done, or gives the very result that it gives with memory; it never crashes, hangs, leaks
// or leaves anything broken behind.

namespace sweep {

/** The allocator of the whole program. While it is armed it counts all threads' allocations and refuses some. */
struct Allocator {
    static void arm(long failAt, bool andAllLater) noexcept; // 0: none
    static long disarm() noexcept;                           // the allocations counted
    static bool hasFailed() noexcept;                        // since arm
    static long liveBlocks() noexcept;
};

/** What a scenario saw, as text of a fixed room: taking it down needs no memory. */
class Seen {
public:
    Seen& operator<<(const wchar_t* text) { return add(text); }
    Seen& operator<<(const char* text) { return add(text); }
    template <class T>
    Seen& operator<<(const orvi::String_T<T>& text)
    {
        return add(text.getBuffer());
    }
    template <class T>
    requires std::is_arithmetic_v<T> Seen& operator<<(T number) { return add(static_cast<double>(number)); }

    /** False ends a scenario whose interface has said "no". */
    static void must(bool worked)
    {
        if (!worked)
            throw std::bad_alloc();
    }
    /** For what promises no more than a line in the log. */
    static void mustNotHaveLogged() { must(errors == 0); }
    /** An empty text is a refusal when the log has a line for it. */
    template <class T>
    Seen& made(const orvi::String_T<T>& text)
    {
        if (text.isEmpty())
            mustNotHaveLogged();
        return *this << text;
    }

    static std::atomic<int> errors; // lines at Log::error in this run
    const char* text() const noexcept { return _text; }
    /** The part behind what both begin with. */
    const char* beyond(const Seen& other) const noexcept;

private:
    template <class T>
    Seen& add(const T* text);
    Seen& add(double number);
    void addBytes(const char* begin, std::size_t size) noexcept;

    char _text[6000] = "";
    std::size_t _size = 0;
};

class ErrorCounter : public orvi::LogListener {
public:
    const wchar_t* getName() override { return L"sweep"; }
    bool setparam(const wchar_t*) override { return false; }
    void error(const wchar_t*) override { ++Seen::errors; }
    void warning(const wchar_t*) override {}
    void message(const wchar_t*) override {}
    void debug(const wchar_t*) override {}
    void whistle(bool) override {}
};

struct Scenario {
    const char* name; // "family: what"
    void (*run)(Seen& seen);
};

/** A text of 8192 times that one. */
orvi::String manyTimes(const wchar_t* text);

extern const std::span<const Scenario> textScenarios, objectScenarios, streamScenarios, documentScenarios,
    runtimeScenarios;

} // namespace sweep
