#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <string>
#include <thread>
#include <vector>

using namespace orvi;

namespace {

struct Text : CallStack::Callback {
    void report(const char* line) override { all.append(line) += '\n'; }
    std::string all;
};

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
        CallStack* deep = captureDeep(1201, capture); // many blocks, and more than a walk first has room for
        REQUIRE(shallow->size() > 2);
        CHECK(deep->size() == shallow->size() + 1200);
        CHECK((*deep)[deep->size() - 1] == (*shallow)[shallow->size() - 1]);
        CHECK((*deep)[70] == (*deep)[71]); // the recursion
        deep->destroy();
        shallow->destroy();
    }
}

TEST_CASE("captures are equal when they are from one place, however deep that lies")
{
    CallStack* stacks[2];
    const volatile int count = 2; // keeps the loop from becoming two places
    for (int i = 0; i < count; ++i)
        stacks[i] = captureDeep(100, &CallStack::getCallStack_fast);
    CHECK(*stacks[0] == *stacks[1]);
    CallStack* elsewhere = captureDeep(100, &CallStack::getCallStack_fast);
    CHECK_FALSE(*stacks[0] == *elsewhere);
    for (auto* stack : {stacks[0], stacks[1], elsewhere})
        stack->destroy();
}

TEST_CASE("a dump names functions, files and lines, without the capture's own frames, on any thread")
{
    const auto dump = [] {
        CallStack* stack = captureDeep(2, &CallStack::getCallStack);
        Text text;
        stack->dump(text);
        stack->destroy();
        CHECK(text.all.starts_with("Call Stack:\n"));
        CHECK(text.all.find("captureDeep") != std::string::npos);
        CHECK(text.all.find("    tests/diagnostics/CallStackTest.cpp (") != std::string::npos);
        CHECK(text.all.find("/CallStack.cpp (") == std::string::npos);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back(dump);
    for (auto& thread : threads)
        thread.join();
}

TEST_CASE("an exception keeps what it was built with, and its copies share its call stack")
{
    const RecordingLog log;
    CallStack* stack = captureDeep(1, &CallStack::getCallStack_fast);
    Exception kept(L"f", 1, L"g", 2, L"d");
    try {
        THROW_EXCEPTION(-1, L"50% of it");
    } catch (Exception& exception) {
        CHECK(exception.code() == -1);
        CHECK(String(exception.file()) == L"tests/diagnostics/CallStackTest.cpp");
        CHECK(exception.line() > 0);
        CHECK(String(exception.function()).find(L"()") > 0);
        exception.report();
        CHECK(log.lines().size() == 1);
        exception.setCallStack(stack);
        stack->destroy();
        kept = exception;
        kept = *&kept;
    }
    kept.report();
    REQUIRE(log.lines().size() > 3);
    CHECK(log.lines()[0].text == L"50% of it");
    CHECK(log.lines()[1].text == L"50% of it");
    CHECK(log.lines()[2].text == L"Call Stack:");
}
