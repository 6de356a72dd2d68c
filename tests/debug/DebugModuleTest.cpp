#include "TextPrinting.h"

#include "../../src/debug/DebugApi.h"
#include "Subject.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

using Visit = decltype(&orvi_debug_visit_stack);

struct Variable {
    std::string name;
    std::string value;
};

struct Frame {
    std::uintptr_t address;
    std::string function;
    std::string file;
    int line;
    std::vector<Variable> parameters;
    std::vector<Variable> variables;
    int ends = 0;
};

std::string textOf(const char* text) { return text != nullptr ? text : ""; }

// As the library loads it: with a C library and a heap of its own.
Visit findVisit()
{
    void* module = dlmopen(LM_ID_NEWLM, ORVI_DEBUG_MODULE, RTLD_NOW | RTLD_LOCAL);
    REQUIRE_MESSAGE(module != nullptr, dlerror());
    return reinterpret_cast<Visit>(dlsym(module, "orvi_debug_visit_stack"));
}

std::vector<Frame> visit(const ucontext_t& registers, std::size_t maxFrames = 100)
{
    static const Visit visitStack = findVisit();
    std::vector<Frame> frames;
    const OrviDebugStackVisitor visitor{
        &frames,
        [](void* context, const OrviDebugFrame* frame) {
            static_cast<std::vector<Frame>*>(context)->push_back(
                {frame->address, textOf(frame->function), textOf(frame->file), frame->line, {}, {}});
        },
        [](void* context, const char* name, const char* value) {
            static_cast<std::vector<Frame>*>(context)->back().parameters.push_back({name, value});
        },
        [](void* context) { ++static_cast<std::vector<Frame>*>(context)->back().ends; },
        [](void* context, const char* name, const char* value) {
            static_cast<std::vector<Frame>*>(context)->back().variables.push_back({name, value});
        }};
    visitStack(&registers, maxFrames, &visitor);
    for (const Frame& frame : frames)
        CHECK(frame.ends == 1);
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

std::string at(const void* address)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%08lx", reinterpret_cast<std::uintptr_t>(address));
    return text;
}

const std::string scope = "subject::(anonymous namespace)::";

std::string shown(const std::vector<Variable>& variables, const std::string& name)
{
    for (const Variable& variable : variables)
        if (variable.name == name)
            return variable.value;
    return "(none)";
}

} // namespace

TEST_CASE("parameters are shown in their order, each as its type asks for")
{
    const Frame frame = stacksOf(&subject::showValues).at(0)[0];
    CHECK(frame.function == scope + "parameters");
    CHECK(frame.file.ends_with("tests/debug/Subject.cpp"));
    CHECK(frame.line > 0);

    const std::string object = at(subject::places.object);
    const struct {
        const char* name;
        std::string value;
    } rows[] = {
        {"stop", at(reinterpret_cast<const void*>(&stop))},
        {"yes", "1"},
        {"letter", "41"},
        {"byte", "ff"},
        {"wide", "41"},
        {"small", "fffe"},
        {"number", "-7"},
        {"positive", "fffffff9"},
        {"big", "FFFFFFFFFFFFFFFF"},
        {"bits", "ABCDEF0123456789"},
        {"fraction", "1.500000"},
        {"real", "-2.250000"},
        {"level", "-3"},
        {"plain", "5"},
        {"text", ""}, // below
        {"object", "(subject::Point *) " + object},
        {"reference", "(subject::Point *) " + object},
        {"function", ""}, // of a name that nobody else sees
        {"anything", object},
        {"(unnamed)", "0"},
    };
    REQUIRE(frame.parameters.size() == std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        CAPTURE(rows[i].name);
        CHECK(frame.parameters[i].name == rows[i].name);
        if (!rows[i].value.empty())
            CHECK(frame.parameters[i].value == rows[i].value);
    }
    const std::string text = shown(frame.parameters, "text");
    CHECK(text.starts_with("0x"));
    CHECK(text.substr(text.find(' ')) == " \"some text\"");
    CHECK(shown(frame.parameters, "function").size() >= std::strlen("0x12345678"));
}

TEST_CASE("variables are shown from the outer blocks to the inner ones, and none of other blocks")
{
    const Frame frame = stacksOf(&subject::showValues).at(1)[0];
    CHECK(frame.function == scope + "variables");
    const subject::Places& places = subject::places;
    const struct {
        const char* name;
        std::string value;
    } rows[] = {
        {"counter", "42"},
        {"point", "(subject::Point) " + at(places.point)},
        {"pointer", "(subject::Point *) " + at(places.point)},
        {"pointerToPointer", "(subject::Point **) " + at(places.pointerToPointer)},
        {"fixed", "(subject::Point *) " + at(places.point)},
        {"choice", "(" + scope + "Choice) " + at(places.choice)},
        {"numbers", "(int[3]) " + at(places.numbers)},
        {"pointerToNumbers", "(int[3] *) " + at(places.numbers)},
        {"name", "\"name\""},
        {"full", "\"abc\""},
        {"missing", "0x00000000"},
        {"wild", "0x00000010"},
        {"veryLong", '"' + std::string(200, 'x') + "\"..."},
        {"pointerToPointerToNumber", "0x00000000"},
        {"member", "0x00000004"},
        {"precise", "-1.250000"},
        {"inner", "-1"},
        {"elsewhere", "(none)"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.name);
        CHECK(shown(frame.variables, row.name) == row.value);
    }
    CHECK(frame.variables.back().name == "inner");
    const std::string special = shown(frame.variables, "special");
    CHECK(special.substr(special.find(' ')) == R"( "\"a\\b\"\x0a\x7f\xe4")");
    CHECK(shown(frame.variables, "pointerToPlain").starts_with("0x"));
    CHECK(shown(frame.variables, "grid").starts_with("(subject::Point[6]) 0x"));
}

TEST_CASE("functions have their whole names, without parameters and result")
{
    const std::vector<Frame> stack = stacksOf(&subject::showNames).at(0);
    const std::string names[] = {
        scope + "hidden::Box<int>::operator+",
        scope + "hidden::Box<int>::operator int<int>",
        scope + "count<3>",
        scope + "Room::operator()",
        scope + "Room::operator<",
    };
    REQUIRE(stack.size() > std::size(names) + 2);
    for (std::size_t i = 0; i < std::size(names); ++i)
        CHECK(stack[i].function == names[i]);
    const Frame& lambda = stack[std::size(names)];
    CHECK(lambda.function.starts_with("subject::showNames::")); // then as the compiler calls the lambda
    CHECK(lambda.function.ends_with("::operator()"));
    CHECK(shown(lambda.parameters, "limit") == "1");
    CHECK(stack[std::size(names) + 1].function == "subject::showNames");
    CHECK(shown(stack[0].parameters, "this").starts_with("(" + scope + "hidden::Box<int> *) 0x"));
}

TEST_CASE("an inlined function has a frame of its own")
{
    const std::vector<Frame> stack = stacksOf(&subject::showInlined).at(0);
    CHECK(stack[0].function == scope + "half");
    CHECK(shown(stack[0].parameters, "value") == "5");
    CHECK(shown(stack[0].variables, "rest") == "1");
    CHECK(stack[1].function == "subject::showInlined");
    CHECK(stack[1].address == stack[0].address);
    CHECK(stack[1].line > stack[0].line); // as they stand in the file
    CHECK(shown(stack[1].variables, "before") == "8");
    CHECK(shown(stack[1].variables, "rest") == "(none)");
}

TEST_CASE("of optimised code, values are right or said to be missing")
{
    const std::vector<Frame> stack = stacksOf(&subject::showOptimised).at(0);
    CHECK(stack[0].function == "subject::optimised");
    CHECK(stack[1].function == "subject::showOptimised");
    REQUIRE(stack[0].parameters.size() == 3);
    const struct {
        const char* name;
        std::string value;
        const char* expected;
    } rows[] = {
        {"kept", shown(stack[0].parameters, "kept"), "7"},
        {"lost", shown(stack[0].parameters, "lost"), "8"}, // the caller tells
        {"constant", shown(stack[0].variables, "constant"), "42"},
        {"computed", shown(stack[0].variables, "computed"), "16"},
    };
    int right = 0;
    for (const auto& row : rows) {
        CAPTURE(row.name);
        right += row.value == row.expected ? 1 : 0;
        CHECK((row.value == row.expected || row.value == "<optimized out>"));
    }
    CHECK(right >= 2); // how many depends on the compiler
}

TEST_CASE("no more frames are shown than are wanted, virtual ones included")
{
    framesWanted = 30;
    stops.clear();
    subject::recurse(100, &stop);
    REQUIRE(stops.at(0).size() == 30);
    for (std::size_t i = 1; i < 30; ++i)
        CHECK(shown(stops[0][i].parameters, "depth") == std::to_string(i - 1));

    framesWanted = 2;
    stops.clear();
    subject::showInlined(&stop);
    REQUIRE(stops.at(0).size() == 2);
    CHECK(stops[0][1].function == scope + "half");
    framesWanted = 100;
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
    std::uintptr_t circle[64];
    for (std::size_t i = 0; i < std::size(circle); ++i)
        circle[i] = reinterpret_cast<std::uintptr_t>(i % 2 == 0 ? static_cast<void*>(circle)
                                                                : reinterpret_cast<void*>(&subject::recurse));
    std::uintptr_t letters[64];
    std::memset(letters, 'A', sizeof letters);
    const auto known = reinterpret_cast<std::uintptr_t>(&subject::recurse) + 8; // behind the prologue
    const auto inCircle = reinterpret_cast<std::uintptr_t>(circle);
    const auto inLetters = reinterpret_cast<std::uintptr_t>(letters);
    const struct {
        const char* what;
        std::uintptr_t instruction;
        std::uintptr_t stack;
        std::uintptr_t frame;
    } rows[] = {
        {"nothing is right", 0x4141414141414141, 0x4242424242424242, 0x4343434343434343},
        {"no stack", known, 8, 16},
        {"the end of the addresses", known, UINTPTR_MAX - 3, UINTPTR_MAX - 3},
        {"only letters", known, inLetters, inLetters},
        {"a wild call among letters", 0, inLetters, inLetters},
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
