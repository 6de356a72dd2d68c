#include "StackWalk.h"

#include "base/Memory.h"
#include "symbols/CodeScopes.h"
#include "symbols/Expression.h"
#include <cstdlib>
#include <memory>

namespace orvi::debug {
namespace {

struct FreeFrame {
    void operator()(Dwarf_Frame* rules) const { std::free(rules); }
};
using UnwindRules = std::unique_ptr<Dwarf_Frame, FreeFrame>;

enum class Step { ToCaller, End, Unknown };

Frame fromContext(const ucontext_t& context)
{
    static constexpr int places[] = {REG_RAX, REG_RDX, REG_RCX, REG_RBX, REG_RSI, REG_RDI,
                                     REG_RBP, REG_RSP, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                     REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
    Frame frame;
    for (unsigned number = 0; number < Frame::registerCount; ++number)
        frame.set(number, static_cast<std::uint64_t>(context.uc_mcontext.gregs[places[number]]));
    frame.interrupted = true;
    return frame;
}

UnwindRules findRules(Dwfl_Module* module, std::uintptr_t address)
{
    Dwarf_Addr bias = 0;
    Dwarf_Frame* rules = nullptr;
    Dwarf_CFI* information = dwfl_module_eh_cfi(module, &bias);
    if (information != nullptr && dwarf_cfi_addrframe(information, address - bias, &rules) == 0)
        return UnwindRules(rules);
    information = dwfl_module_dwarf_cfi(module, &bias);
    if (information != nullptr && dwarf_cfi_addrframe(information, address - bias, &rules) == 0)
        return UnwindRules(rules);
    return {};
}

std::optional<std::uint64_t> findFrameAddress(Dwarf_Frame* rules, const Frame& frame)
{
    Dwarf_Op* operations = nullptr;
    std::size_t count = 0;
    if (dwarf_frame_cfa(rules, &operations, &count) != 0)
        return {};
    const std::optional<Operand> result = evaluate({operations, count}, frame);
    return result ? std::optional(result->number) : std::nullopt;
}

// What register `number` held in the caller. Empty: lost.
std::optional<std::uint64_t> callersRegister(Dwarf_Frame* rules, unsigned number, int column,
                                             const Frame& frame)
{
    Dwarf_Op memory[3];
    Dwarf_Op* operations = nullptr;
    std::size_t count = 0;
    if (dwarf_frame_register(rules, column, memory, &operations, &count) != 0)
        return {};
    if (count == 0) { // libdw's way to say "the same" and "undefined"
        const bool isSame = operations == nullptr;
        return isSame && frame.has(number) ? std::optional(frame.get(number)) : std::nullopt;
    }
    const std::optional<Operand> result = evaluate({operations, count}, frame);
    if (!result || result->kind == Operand::Kind::Value)
        return result ? std::optional(result->number) : std::nullopt;
    std::uint64_t value = 0;
    return readMemory(result->number, &value, sizeof value) ? std::optional(value) : std::nullopt;
}

Step stepByRules(Dwfl* dwfl, Frame& frame, Frame& caller)
{
    Dwfl_Module* module = findModule(dwfl, frame.codeAddress());
    const UnwindRules rules = module == nullptr ? UnwindRules() : findRules(module, frame.codeAddress());
    if (!rules)
        return Step::Unknown;
    frame.frameAddress = findFrameAddress(rules.get(), frame);
    bool isSignal = false;
    const int returnColumn = dwarf_frame_info(rules.get(), nullptr, nullptr, &isSignal);
    if (!frame.frameAddress || returnColumn < 0)
        return Step::Unknown;

    for (unsigned number = 0; number < Frame::registerCount; ++number) {
        const int column = number == Frame::Rip ? returnColumn : static_cast<int>(number);
        if (const auto value = callersRegister(rules.get(), number, column, frame))
            caller.set(number, *value);
    }
    if (!caller.has(Frame::Rsp))
        caller.set(Frame::Rsp, *frame.frameAddress);
    caller.interrupted = isSignal;
    if (!caller.has(Frame::Rip)) // undefined at the outermost frame
        return Step::End;
    // 0 ends a stack, too, unless it was called: then the signal found the thread there.
    return caller.get(Frame::Rip) == 0 && !isSignal ? Step::End : Step::ToCaller;
}

// A call to a wrong address has pushed its return address and done nothing else.
bool stepFromWildCall(Dwfl* dwfl, const Frame& frame, Frame& caller)
{
    if (!frame.interrupted || findModule(dwfl, frame.codeAddress()) != nullptr)
        return false;
    std::uint64_t returnAddress = 0;
    if (!readMemory(frame.get(Frame::Rsp), &returnAddress, sizeof returnAddress) ||
        findModule(dwfl, returnAddress) == nullptr)
        return false;
    caller = frame;
    caller.frameAddress.reset();
    caller.set(Frame::Rip, returnAddress);
    caller.set(Frame::Rsp, frame.get(Frame::Rsp) + sizeof returnAddress);
    caller.interrupted = false;
    return true;
}

// For code without unwind rules: stays right as long as it keeps frame pointers. A wrong frame would be worse
// than a missing one: so only what lies on the stack and leads to known code counts.
bool stepByFramePointer(Dwfl* dwfl, const Frame& frame, Frame& caller)
{
    const std::uint64_t pointer = frame.get(Frame::Rbp);
    std::uint64_t saved[2]; // frame pointer, return address
    if (!frame.has(Frame::Rbp) || pointer < frame.get(Frame::Rsp) ||
        !readMemory(pointer, saved, sizeof saved) || findModule(dwfl, saved[1]) == nullptr)
        return false;
    caller = Frame();
    caller.set(Frame::Rbp, saved[0]);
    caller.set(Frame::Rip, saved[1]);
    caller.set(Frame::Rsp, pointer + sizeof saved);
    return true;
}

bool stepToCaller(Dwfl* dwfl, Frame& frame, Frame& caller)
{
    switch (stepByRules(dwfl, frame, caller)) {
    case Step::ToCaller:
        return true;
    case Step::End:
        return false;
    case Step::Unknown:
        break;
    }
    return stepFromWildCall(dwfl, frame, caller) || stepByFramePointer(dwfl, frame, caller);
}

} // namespace

StackWalk::StackWalk(Dwfl* dwfl, const ucontext_t& start)
    : _dwfl(dwfl)
    , _frame(fromContext(start))
{
    findCaller();
}

void StackWalk::findCaller()
{
    _caller = Frame();
    _hasCaller = stepToCaller(_dwfl, _frame, _caller) && (_caller.get(Frame::Rsp) > _frame.get(Frame::Rsp) ||
                                                          (_caller.interrupted && _stackChanges-- > 0));
}

bool StackWalk::moveToCaller()
{
    if (!_hasCaller)
        return false;
    _frame = _caller;
    findCaller();
    return true;
}

std::size_t walkStack(Dwfl* dwfl, const ucontext_t& start, std::uintptr_t bottom, std::uintptr_t* addresses,
                      std::size_t capacity)
{
    const MemoryCache cache;
    StackWalk walk(dwfl, start);
    std::size_t count = 0;
    bool below = true;
    while (count < capacity && walk.moveToCaller()) {
        below = below && walk.frame().get(Frame::Rsp) <= bottom;
        if (!below)
            addresses[count++] = walk.frame().codeAddress() + 1;
    }
    return count;
}

} // namespace orvi::debug
