#include "TextPrinting.h"

#include "../../src/debug/DebugApi.h"
#include "Subject.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

struct Frame {
    std::uintptr_t address;
    std::string function, file;
    int line;
    std::string values{}; // " name=value," for each, with "|" between parameters and variables
    bool has(const std::string& part) const { return values.find(part) != std::string::npos; }
};

/** From the module as the library loads it: with a C library and a heap of its own. */
void* functionOf(const char* name)
{
    static void* const module = dlmopen(LM_ID_NEWLM, ORVI_DEBUG_MODULE, RTLD_NOW | RTLD_LOCAL);
    REQUIRE(module != nullptr);
    return dlsym(module, name);
}

std::vector<Frame> visit(const ucontext_t& registers, std::size_t maxFrames = 100)
{
    static std::vector<Frame> frames;
    frames.clear();
    const auto addValue = [](void*, const char* name, const char* value) {
        frames.back().values.append(" ").append(name).append("=").append(value).append(",");
    };
    const OrviDebugStackVisitor visitor{
        nullptr,
        [](void*, const OrviDebugFrame* frame) {
            const auto textOf = [](const char* text) { return text != nullptr ? text : ""; };
            frames.push_back({frame->address, textOf(frame->function), textOf(frame->file), frame->line});
        },
        addValue, [](void*) { frames.back().values += "|"; }, addValue};
    reinterpret_cast<decltype(&orvi_debug_visit_stack)>(functionOf("orvi_debug_visit_stack"))(
        &registers, maxFrames, &visitor);
    for (const Frame& frame : frames)
        CHECK(std::ranges::count(frame.values, '|') == 1);
    return frames;
}

std::vector<std::vector<Frame>> stops; // what was seen, one stack for each stop
std::size_t framesWanted = 100;

void stop()
{
    ucontext_t here;
    getcontext(&here);
    stops.push_back(visit(here, framesWanted));
}

/** The stacks at the stops of `function`, each from the frame that called `stop` on. */
std::vector<std::vector<Frame>> stacksOf(void (*function)(void (*)()))
{
    stops.clear();
    function(&stop);
    auto stacks = std::move(stops);
    for (auto& stack : stacks) {
        REQUIRE(stack.size() > 3);
        CHECK(stack[0].function == "(anonymous namespace)::stop");
        stack.erase(stack.begin());
    }
    return stacks;
}

const std::string scope = "subject::(anonymous namespace)::";

/** Its values, with one letter for each address of an object. */
std::string valuesOf(const Frame& frame)
{
    std::string text = frame.values;
    std::smatch found;
    for (char letter = 'A'; std::regex_search(text, found, std::regex("0x(?!000000)[0-9a-f]{8,}")); ++letter)
        text = std::regex_replace(text, std::regex(found.str()), std::string(1, letter));
    return text;
}

} // namespace

TEST_CASE("parameters and variables are shown in their order, each as its type asks for")
{
    const std::vector<std::vector<Frame>> stacks = stacksOf(&subject::showValues);
    const Frame& frame = stacks.at(0)[0];
    CHECK(frame.function == scope + "parameters");
    CHECK(frame.file.ends_with("tests/debug/Subject.cpp"));
    CHECK(frame.line > 0);
    CHECK(valuesOf(frame) ==
          " stop=A, yes=1, byte=ff, small=fffe, number=-7, positive=fffffff9, bits=ABCDEF0123456789,"
          " fraction=1.500000, real=-2.250000, level=-3, plain=5, text=B \"some text\","
          " object=(subject::Point *) C, reference=(subject::Point *) C, anything=C, (unnamed)=0,|");
    // From the outer blocks to the inner ones, and none of other blocks.
    CHECK(valuesOf(stacks.at(1)[0]) ==
          " stop=A,| counter=42, point=(subject::Point) B, pointerToPointer=(subject::Point **) C,"
          " fixed=(subject::Point *) B, numbers=(int[3]) D, pointerToNumbers=(int[3] *) D,"
          " grid=(subject::Point[6]) E, name=\"name\", full=\"abc\","
          R"( special=F "\"a\\b\"\x0a\x7f\xe4", missing=0x00000000, wild=0x00000010, veryLong=")" +
              std::string(200, 'x') +
              "\"..., pointerToPlain=0x00000000, pointerToPointerToNumber=0x00000000, member=0x00000004,"
              " precise=-1.250000, inner=-1,");
}

TEST_CASE("functions have their whole names, without parameters and result")
{
    const std::vector<Frame> stack = stacksOf(&subject::showNames).at(0);
    const char* const names[] = {"hidden::Box<int>::operator+", "hidden::Box<int>::operator int<int>",
                                 "count<3>", "Room::operator()", "Room::operator<"};
    REQUIRE(stack.size() > std::size(names) + 2);
    for (std::size_t i = 0; i < std::size(names); ++i)
        CHECK(stack[i].function == scope + names[i]);
    const Frame& lambda = stack[std::size(names)];
    CHECK(lambda.function.starts_with("subject::showNames::")); // then as the compiler calls the lambda
    CHECK(lambda.function.ends_with("::operator()"));
    CHECK(lambda.has(" limit=1,"));
    CHECK(stack[0].has(" this=(" + scope + "hidden::Box<int> *) 0x"));
}

TEST_CASE("an inlined function has a frame of its own")
{
    const std::vector<Frame> stack = stacksOf(&subject::showInlined).at(0);
    CHECK(stack[0].function == scope + "half");
    CHECK(stack[0].has(" value=5,"));
    CHECK(stack[0].has("| rest=1,"));
    CHECK(stack[1].function == "subject::showInlined");
    CHECK(stack[1].address == stack[0].address);
    CHECK(stack[1].line > stack[0].line); // as they stand in the file
    CHECK(stack[1].has("| before=8,"));
    CHECK_FALSE(stack[1].has(" rest="));
}

TEST_CASE("of optimised code, values are right or said to be missing")
{
    const std::vector<Frame> stack = stacksOf(&subject::showOptimised).at(0);
    CHECK(stack[0].function == "subject::optimised");
    CHECK(stack[1].function == "subject::showOptimised");
    int right = 0; // how many depends on the compiler
    for (const char* value : {" kept=7,", " lost=8,", " constant=42,", " computed=16,"}) {
        const std::string name(value, std::strchr(value, '=') + 1);
        CHECK((stack[0].has(value) || stack[0].has(name + "<optimized out>,")));
        right += stack[0].has(value);
    }
    CHECK(right >= 2);
}

TEST_CASE("no more frames are shown than are wanted, virtual ones included")
{
    framesWanted = 30;
    stops.clear();
    subject::recurse(100, &stop);
    REQUIRE(stops.at(0).size() == 30);
    CHECK(stops[0][29].has(" depth=28,"));
    framesWanted = 2;
    subject::showInlined(&stop);
    framesWanted = 100;
    REQUIRE(stops.at(1).size() == 2);
    CHECK(stops[1][1].function == scope + "half");
}

// Its frame keeps its size: what a called function pushes first is always the return address into this one.
__attribute__((noinline)) std::vector<Frame> visitAfterCallOf(std::uintptr_t address)
{
    ucontext_t registers;
    getcontext(&registers);
    registers.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(address);
    registers.uc_mcontext.gregs[REG_RSP] -= static_cast<greg_t>(sizeof(void*));
    return visit(registers);
}

TEST_CASE("a call of a wrong address is shown, and who did it")
{
    for (const std::uintptr_t address : {std::uintptr_t{0}, std::uintptr_t{0x414141414141}, UINTPTR_MAX}) {
        const std::vector<Frame> stack = visitAfterCallOf(address);
        REQUIRE(stack.size() > 2);
        CHECK(stack[0].address == address);
        CHECK(stack[0].function.empty());
        CHECK(stack[0].line == 0);
        CHECK(stack[1].function == "visitAfterCallOf");
    }
}

TEST_CASE("a damaged stack ends early, without harm")
{
    const auto code = reinterpret_cast<std::uintptr_t>(&subject::recurse);
    const auto known = code + 8; // behind the prologue
    std::uintptr_t circle[64], letters[64];
    const auto inCircle = reinterpret_cast<std::uintptr_t>(circle);
    const auto inLetters = reinterpret_cast<std::uintptr_t>(letters);
    for (std::size_t i = 0; i < std::size(circle); ++i) {
        circle[i] = i % 2 == 0 ? inCircle : code;
        letters[i] = 0x4141414141414141;
    }
    const struct {
        const char* what;
        std::uintptr_t instruction, stack, frame;
    } rows[] = {
        {"nothing is right", 0x4141414141414141, 0x4242424242424242, 0x4343434343434343},
        {"the end of the addresses", known, UINTPTR_MAX - 3, UINTPTR_MAX - 3},
        {"only letters", known, inLetters, inLetters},
        {"frames in a circle", known, inCircle, inCircle},
        {"a wild call into a circle", 0, inCircle, inCircle},
        {"code without rules in a circle", inCircle, inCircle, inCircle},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        ucontext_t registers;
        getcontext(&registers);
        registers.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(row.instruction);
        registers.uc_mcontext.gregs[REG_RSP] = static_cast<greg_t>(row.stack);
        registers.uc_mcontext.gregs[REG_RBP] = static_cast<greg_t>(row.frame);
        const std::vector<Frame> stack = visit(registers);
        REQUIRE(!stack.empty());
        CHECK(stack[0].address == row.instruction);
        CHECK(stack.size() < 100);
    }
}

TEST_CASE("all loaded modules are listed, in the order of their addresses")
{
    static std::uintptr_t end = 0;
    static std::multiset<std::string> paths;
    reinterpret_cast<decltype(&orvi_debug_visit_modules)>(functionOf("orvi_debug_visit_modules"))(
        [](void*, const OrviDebugModule* module) {
            CHECK(module->base >= end);
            CHECK(module->size != 0);
            end = module->base + module->size;
            const std::string& path = *paths.insert(module->path);
            CHECK((module->version[0] == 6 || path.find("libstdc++.so.") == path.npos));
            CHECK((module->version[1] == 0 || path.find("/libc.so.") == path.npos));
        },
        nullptr);
    for (const char* path : {"/proc/self/exe", ORVI_DEBUG_MODULE})
        CHECK(paths.count(std::filesystem::canonical(path).string()) == 1);
    CHECK(paths.count("[vdso]") == 1);
}
