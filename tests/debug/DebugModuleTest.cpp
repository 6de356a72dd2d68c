#include "TextPrinting.h"

#include "../../src/debug/DebugApi.h"
#include "Subject.h"

#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

struct Frame {
    std::uintptr_t address;
    std::string function;
    std::string file;
    int line;
    std::vector<std::string> parameters{}; // as "name=value"
    std::vector<std::string> variables{};
    int ends = 0;
};

std::vector<Frame> visit(const ucontext_t& registers, std::size_t maxFrames = 100)
{
    // As the library loads it: with a C library and a heap of its own.
    static void* const module = dlmopen(LM_ID_NEWLM, ORVI_DEBUG_MODULE, RTLD_NOW | RTLD_LOCAL);
    REQUIRE(module != nullptr);
    static std::vector<Frame> frames;
    frames.clear();
    const OrviDebugStackVisitor visitor{
        nullptr,
        [](void*, const OrviDebugFrame* frame) {
            const auto textOf = [](const char* text) { return text != nullptr ? text : ""; };
            frames.push_back({frame->address, textOf(frame->function), textOf(frame->file), frame->line});
        },
        [](void*, const char* name, const char* value) {
            frames.back().parameters.push_back(std::string(name) + "=" + value);
        },
        [](void*) { ++frames.back().ends; },
        [](void*, const char* name, const char* value) {
            frames.back().variables.push_back(std::string(name) + "=" + value);
        }};
    const auto visitStack =
        reinterpret_cast<decltype(&orvi_debug_visit_stack)>(dlsym(module, "orvi_debug_visit_stack"));
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

const std::string scope = "subject::(anonymous namespace)::";

/** The value behind a name. */
std::string shown(const std::vector<std::string>& variables, const std::string& name)
{
    for (const std::string& variable : variables)
        if (variable.starts_with(name + "="))
            return variable.substr(name.size() + 1);
    return "(none)";
}

/** These and no others, in this order. Behind "0x" may come any address. */
void checkVariables(const std::vector<std::string>& found, const std::vector<std::string>& expected)
{
    REQUIRE(found.size() == expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        const bool isWhole = !expected[i].ends_with("0x");
        CHECK(found[i].substr(0, isWhole ? std::string::npos : expected[i].size()) == expected[i]);
    }
}

} // namespace

TEST_CASE("parameters are shown in their order, each as its type asks for")
{
    const Frame frame = stacksOf(&subject::showValues).at(0)[0];
    CHECK(frame.function == scope + "parameters");
    CHECK(frame.file.ends_with("tests/debug/Subject.cpp"));
    CHECK(frame.line > 0);

    const std::string object = shown(frame.parameters, "anything"); // of no type: the address alone
    checkVariables(frame.parameters,
                   {"stop=0x", "yes=1", "byte=ff", "small=fffe", "number=-7", "positive=fffffff9",
                    "bits=ABCDEF0123456789", "fraction=1.500000", "real=-2.250000", "level=-3", "plain=5",
                    "text=0x", "object=(subject::Point *) " + object,
                    "reference=(subject::Point *) " + object, "anything=0x", "(unnamed)=0"});
    CHECK(shown(frame.parameters, "text").ends_with(" \"some text\""));
}

TEST_CASE("variables are shown from the outer blocks to the inner ones, and none of other blocks")
{
    const Frame frame = stacksOf(&subject::showValues).at(1)[0];
    const std::string point = shown(frame.variables, "point");
    const std::string address = point.substr(point.find(')') + 1);
    const std::string numbers = shown(frame.variables, "numbers");
    checkVariables(frame.variables,
                   {"counter=42", "point=(subject::Point) 0x", "pointerToPointer=(subject::Point **) 0x",
                    "fixed=(subject::Point *)" + address, "numbers=(int[3]) 0x",
                    "pointerToNumbers=(int[3] *)" + numbers.substr(numbers.find(' ')),
                    "grid=(subject::Point[6]) 0x", "name=\"name\"", "full=\"abc\"", "special=0x",
                    "missing=0x00000000", "wild=0x00000010", "veryLong=\"" + std::string(200, 'x') + "\"...",
                    "pointerToPlain=0x00000000", "pointerToPointerToNumber=0x00000000", "member=0x00000004",
                    "precise=-1.250000", "inner=-1"});
    CHECK(shown(frame.variables, "special").ends_with(R"( "\"a\\b\"\x0a\x7f\xe4")"));
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
    CHECK(shown(lambda.parameters, "limit") == "1");
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
    const auto isRight = [](const std::string& value, const char* expected) {
        CHECK((value == expected || value == "<optimized out>"));
        return value == expected;
    };
    const int right = isRight(shown(stack[0].parameters, "kept"), "7") +
                      isRight(shown(stack[0].parameters, "lost"), "8") + // the caller tells
                      isRight(shown(stack[0].variables, "constant"), "42") +
                      isRight(shown(stack[0].variables, "computed"), "16");
    CHECK(right >= 2); // how many depends on the compiler
}

TEST_CASE("no more frames are shown than are wanted, virtual ones included")
{
    framesWanted = 30;
    stops.clear();
    subject::recurse(100, &stop);
    REQUIRE(stops.at(0).size() == 30);
    CHECK(shown(stops[0][29].parameters, "depth") == "28");
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
