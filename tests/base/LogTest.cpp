#include "TextPrinting.h"

#include <orvi/core/Core.h>

#include <stdexcept>
#include <thread>
#include <vector>

using namespace orvi;

namespace {

struct Listener : orvi::LogListener {
    explicit Listener(
        const wchar_t* ownName = L"", void (*reaction)() = [] {})
        : name(ownName)
        , react(reaction)
    {
        Log::addListener(this);
    }
    ~Listener() override { Log::removeListener(this); }

    const wchar_t* getName() override { return name; }
    bool setparam(const wchar_t* text) override
    {
        add(text);
        return true;
    }
    void error(const wchar_t* text) override { add(L"E " + String(text)); }
    void warning(const wchar_t* text) override { add(L"W " + String(text)); }
    void message(const wchar_t* text) override { add(L"M " + String(text)); }
    void debug(const wchar_t* text) override { add(L"D " + String(text)); }
    void whistle(bool success) override { add(success ? L"+" : L"-"); }

    void add(const String& line)
    {
        lines.push_back(line);
        react();
    }

    const wchar_t* name;
    void (*react)();
    std::vector<String> lines;
};

} // namespace

TEST_CASE("a line reaches every listener once, formatted, at its level, whatever the others do")
{
    Log::error(L"%s%s%s%n", reinterpret_cast<const wchar_t*>(1), 2, 3); // to nobody: not even read
    Listener thrower(L"", [] { throw std::runtime_error("listener"); });
    Listener talker(L"", [] {
        Log::warning(L"lost");
        Log::whistle(true);
    });
    Listener last;
    Log::addListener(&last); // a second registration changes nothing
    Log::addListener(nullptr);
    Log::removeListener(nullptr);
    Log::error(L"%s %d", L"one", 1);
    Log::warning(L"two");
    Log::message(L"three");
    Log::debug(L"%%");
    Log::whistle(true);
    Log::whistle(false);
    const std::vector<String> expected{L"E one 1", L"W two", L"M three", L"D %", L"+", L"-"};
    CHECK(thrower.lines == expected);
    CHECK(talker.lines == expected);
    CHECK(last.lines == expected);
}

TEST_CASE("long lines arrive whole, on both sides of the stack buffer's size")
{
    Listener listener;
    for (int length : {32767, 32768, 200000}) {
        Log::message(L"%*d", length, 7);
        CHECK(listener.lines.back().getLength() == length + 2);
        CHECK(listener.lines.back()[length + 1] == L'7');
    }
}

TEST_CASE("settings find their listener by exact name")
{
    Listener file(L"file"), other(L"other");
    CHECK(Log::getLogListener(L"other") == &other);
    CHECK(Log::getLogListener(L"File") == nullptr);
    CHECK(Log::setparam(L"file@a@b"));
    CHECK(file.lines == std::vector<String>{L"a@b"});
    CHECK(other.lines.empty());
    CHECK(!Log::setparam(L"file"));
    CHECK(!Log::setparam(L"none@x"));
    CHECK(!Log::setparam(nullptr));
    CHECK(Log::setparam(L"other@"));
}

TEST_CASE("lines of many threads are delivered one at a time")
{
    Listener slow(L"", [] { std::this_thread::yield(); }); // so that the threads meet
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int line = 0; line < 500; ++line)
                Log::debug(L"%d.%d", i, line);
        });
    }
    for (auto& thread : threads)
        thread.join();
    CHECK(slow.lines.size() == 2000);
}
