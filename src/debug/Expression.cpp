#include "Expression.h"

#include "Memory.h"
#include <dwarf.h>

namespace orvi::debug {
namespace {

class Machine {
public:
    Machine(const Frame& frame, std::optional<std::uint64_t> frameAddress)
        : _frame(frame)
        , _frameAddress(frameAddress)
    {}

    bool run(const Dwarf_Op& operation);
    std::optional<std::uint64_t> top() const
    {
        return _depth == 0 ? std::nullopt : std::optional(_stack[_depth - 1]);
    }

private:
    bool push(std::uint64_t value)
    {
        if (_depth == std::size(_stack))
            return false;
        _stack[_depth++] = value;
        return true;
    }
    bool pushRegister(std::uint64_t number, std::uint64_t offset)
    {
        return _frame.has(static_cast<unsigned>(number)) &&
               push(_frame.get(static_cast<unsigned>(number)) + offset);
    }
    bool load();
    bool combine(unsigned operation);

    const Frame& _frame;
    std::optional<std::uint64_t> _frameAddress;
    std::uint64_t _stack[16];
    std::size_t _depth = 0;
};

bool Machine::run(const Dwarf_Op& operation)
{
    const unsigned code = operation.atom;
    if (code >= DW_OP_lit0 && code <= DW_OP_lit31)
        return push(code - DW_OP_lit0);
    if (code >= DW_OP_breg0 && code <= DW_OP_breg31)
        return pushRegister(code - DW_OP_breg0, operation.number);
    switch (code) {
    case DW_OP_bregx:
        return pushRegister(operation.number, operation.number2);
    case DW_OP_const1u:
    case DW_OP_const1s:
    case DW_OP_const2u:
    case DW_OP_const2s:
    case DW_OP_const4u:
    case DW_OP_const4s:
    case DW_OP_const8u:
    case DW_OP_const8s:
    case DW_OP_constu:
    case DW_OP_consts:
        return push(operation.number);
    case DW_OP_call_frame_cfa:
        return _frameAddress && push(*_frameAddress);
    case DW_OP_plus_uconst:
        if (_depth == 0)
            return false;
        _stack[_depth - 1] += operation.number;
        return true;
    case DW_OP_dup:
        return _depth > 0 && push(_stack[_depth - 1]);
    case DW_OP_drop:
        if (_depth == 0)
            return false;
        --_depth;
        return true;
    case DW_OP_deref:
        return load();
    case DW_OP_nop:
        return true;
    default:
        return combine(code);
    }
}

bool Machine::load()
{
    return _depth > 0 && readMemory(_stack[_depth - 1], &_stack[_depth - 1], sizeof _stack[0]);
}

// The operations that take two values and leave one.
bool Machine::combine(unsigned operation)
{
    if (_depth < 2)
        return false;
    const std::uint64_t right = _stack[_depth - 1];
    std::uint64_t& left = _stack[_depth - 2];
    const auto signedLeft = static_cast<std::int64_t>(left);
    const auto signedRight = static_cast<std::int64_t>(right);
    switch (operation) {
    case DW_OP_plus:
        left += right;
        break;
    case DW_OP_minus:
        left -= right;
        break;
    case DW_OP_mul:
        left *= right;
        break;
    case DW_OP_and:
        left &= right;
        break;
    case DW_OP_or:
        left |= right;
        break;
    case DW_OP_shl:
        left = right < 64 ? left << right : 0;
        break;
    case DW_OP_shr:
        left = right < 64 ? left >> right : 0;
        break;
    case DW_OP_eq:
        left = left == right;
        break;
    case DW_OP_ne:
        left = left != right;
        break;
    case DW_OP_lt:
        left = signedLeft < signedRight;
        break;
    case DW_OP_le:
        left = signedLeft <= signedRight;
        break;
    case DW_OP_gt:
        left = signedLeft > signedRight;
        break;
    case DW_OP_ge:
        left = signedLeft >= signedRight;
        break;
    default:
        return false;
    }
    --_depth;
    return true;
}

std::optional<Operand> valueOf(std::optional<std::uint64_t> number)
{
    return number ? std::optional(Operand{Operand::Kind::Value, *number}) : std::nullopt;
}

std::optional<Operand> registerValue(const Frame& frame, std::uint64_t number)
{
    const auto index = static_cast<unsigned>(number);
    return frame.has(index) ? valueOf(frame.get(index)) : std::nullopt;
}

} // namespace

std::optional<Operand> evaluate(std::span<const Dwarf_Op> operations, const Frame& frame,
                                std::optional<std::uint64_t> frameAddress)
{
    Machine machine(frame, frameAddress);
    for (const Dwarf_Op& operation : operations) {
        if (operation.atom >= DW_OP_reg0 && operation.atom <= DW_OP_reg31)
            return registerValue(frame, operation.atom - DW_OP_reg0);
        if (operation.atom == DW_OP_regx)
            return registerValue(frame, operation.number);
        if (operation.atom == DW_OP_stack_value)
            return valueOf(machine.top());
        if (!machine.run(operation))
            return {};
    }
    const std::optional<std::uint64_t> address = machine.top();
    return address ? std::optional(Operand{Operand::Kind::Address, *address}) : std::nullopt;
}

} // namespace orvi::debug
