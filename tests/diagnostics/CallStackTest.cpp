#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <string>
#include <thread>
#include <vector>

using orvi::CallStack;
using orvi::Exception;
using orvi::String;

namespace {

struct Lines : CallStack::Callback {
    void report(const char* line) override { lines.emplace_back(line); }
    std::vector<std::string> lines;
};

bool contains(const std::vector<std::string>& lines, const std::string& text)
{
    for (const auto& line : lines) {
        if (line.find(text) != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

// Visible names, and calls that the compiler does not turn into jumps.
__attribute__((noinline)) CallStack* captureDeep(int depth, CallStack* (*capture)())
{
    CallStack* stack = depth > 0 ? captureDeep(depth - 1, capture) : capture();
    asm volatile("" : : "r"(stack) : "memory");
    return stack;
}

TEST_CASE("a capture holds the callers, innermost first, at any depth")
{
    for (const auto capture : {&CallStack::getCallStack, &CallStack::getCallStack_fast}) {
        CallStack* shallow = captureDeep(1, capture);
        CallStack* deep = captureDeep(101, capture); // more than three blocks
        REQUIRE(shallow->size() > 2);
        CHECK(deep->size() == shallow->size() + 100);
        CHECK(!(*deep == *shallow));
        CHECK((*deep)[deep->size() - 1] == (*shallow)[shallow->size() - 1]);
        CHECK((*deep)[70] == (*deep)[71]); // the recursion
        deep->destroy();
        shallow->destroy();
    }
}

TEST_CASE("two captures from one place are equal")
{
    CallStack* stacks[2];
    const volatile int count = 2; // keeps the loop from becoming two places
    for (int i = 0; i < count; ++i)
        stacks[i] = captureDeep(1, &CallStack::getCallStack_fast);
    CHECK(*stacks[0] == *stacks[1]);
    stacks[1]->addRef();
    stacks[1]->destroy();
    CHECK(stacks[1]->size() > 0); // still there
    for (auto* stack : stacks)
        stack->destroy();
}

TEST_CASE("a dump names functions, files and lines, without the capture's own frames")
{
    CallStack* stack = captureDeep(2, &CallStack::getCallStack);
    Lines dump;
    stack->dump(dump);
    stack->destroy();
    REQUIRE(!dump.lines.empty());
    CHECK(dump.lines[0] == "Call Stack:");
    CHECK(contains(dump.lines, "captureDeep"));
    CHECK(contains(dump.lines, "CallStackTest.cpp ("));
    CHECK(!contains(dump.lines, "/CallStack.cpp ("));
    for (std::size_t i = 1; i < dump.lines.size(); ++i)
        CHECK(dump.lines[i].rfind("    ", 0) == 0);
}

TEST_CASE("threads capture and dump at the same time")
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 5; ++round) {
                CallStack* stack = captureDeep(5, &CallStack::getCallStack);
                Lines dump;
                stack->dump(dump);
                stack->destroy();
                CHECK(contains(dump.lines, "captureDeep"));
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
}

TEST_CASE("an exception keeps what it was built with, and reports it once")
{
    const RecordingLog log;
    try {
        THROW_EXCEPTION(-1, L"50% of it");
    } catch (const Exception& exception) {
        CHECK(exception.code() == -1);
        CHECK(String(exception.file()) == L"tests/diagnostics/CallStackTest.cpp");
        CHECK(exception.line() > 0);
        CHECK(String(exception.function()).find(L"()") > 0);
        CHECK(String(exception.description()) == L"50% of it");
        exception.report();
    }
    REQUIRE(log.lines().size() == 1);
    CHECK(log.lines()[0].text == L"50% of it");
}

TEST_CASE("copies of an exception share its call stack")
{
    const RecordingLog log;
    CallStack* stack = captureDeep(1, &CallStack::getCallStack_fast);
    Exception kept(L"f", 1, L"g", 2, L"d");
    {
        Exception first(L"file", 7, L"function", 8, L"description");
        first.setCallStack(stack);
        stack->destroy();
        kept = first;
        kept = *&kept;
    }
    CHECK(String(kept.file()) == L"file");
    CHECK(kept.line() == 7);
    kept.report();
    REQUIRE(log.lines().size() > 2);
    CHECK(log.lines()[0].text == L"description");
    CHECK(log.lines()[1].text == L"Call Stack:");
}
