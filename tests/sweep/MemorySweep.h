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
    static bool stopsForDebugger; // SIGTRAP at what fails
};

/** Ends a scenario whose interface has said "no". */
struct Refusal {};

/** What a scenario saw, as text of a fixed room: taking it down needs no memory. */
class Seen {
public:
    Seen& operator<<(const wchar_t* text);
    Seen& operator<<(const orvi::String& text) { return *this << text.getBuffer(); }
    Seen& operator<<(const char* text);
    Seen& operator<<(const orvi::String_T<char>& text) { return *this << text.getBuffer(); }
    Seen& operator<<(double number);
    template <class T>
    requires std::is_arithmetic_v<T> Seen& operator<<(T number)
    {
        return *this << static_cast<double>(number);
    }

    /** False is a refusal. */
    static void must(bool worked)
    {
        if (!worked)
            throw Refusal();
    }
    /** For what promises no more than a line in the log. */
    static void mustNotHaveLogged() { must(errors == 0); }
    /** An empty text is a refusal when the log has a line for it. */
    template <class T>
    Seen& made(const orvi::String_T<T>& text)
    {
        if (text.isEmpty())
            mustNotHaveLogged();
        return *this << convert(text);
    }

    static const wchar_t* convert(const orvi::String& text) { return text; }
    static const char* convert(const orvi::String_T<char>& text) { return text; }
    static const char* convert(const orvi::String_T<unsigned char>& text)
    {
        return reinterpret_cast<const char*>(text.getBuffer());
    }

    static std::atomic<int> errors; // lines at Log::error in this run
    const char* text() const noexcept { return _text; }
    bool operator==(const Seen& other) const noexcept;
    bool isPrefixOf(const Seen& other) const noexcept;

private:
    template <class T>
    Seen& addText(const T* text);
    void add(const char* begin, std::size_t size) noexcept;

    char _text[6000] = "";
    std::size_t _size = 0;
};

struct Scenario {
    const char* family;
    const char* name;
    void (*run)(Seen& seen);
};

extern const std::span<const Scenario> textScenarios, objectScenarios, streamScenarios, documentScenarios,
    runtimeScenarios;

} // namespace sweep
