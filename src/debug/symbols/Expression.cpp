#include "Expression.h"

#include "base/Memory.h"
#include <dwarf.h>
#include <utility>

namespace orvi::debug {
namespace {

class Machine {
public:
    Machine(const Frame& frame, Surroundings* surroundings)
        : _frame(frame)
        , _surroundings(surroundings)
    {}

    bool run(const Dwarf_Op& operation);
    std::optional<std::uint64_t> top() const
    {
        return _depth == 0 ? std::nullopt : std::optional(_stack[_depth - 1]);
    }
    bool pushResolved(const Dwarf_Op& operation)
    {
        const auto number = _surroundings ? _surroundings->resolve(operation) : std::nullopt;
        return number && push(*number);
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
    bool pushCopy(std::uint64_t depth) { return depth < _depth && push(_stack[_depth - 1 - depth]); }
    bool load(std::uint64_t size);
    bool change(const Dwarf_Op& operation);
    bool combine(unsigned operation);

    const Frame& _frame;
    Surroundings* _surroundings;
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
        return _frame.frameAddress && push(*_frame.frameAddress);
    case DW_OP_addr:
    case DW_OP_addrx:
    case DW_OP_constx:
    case DW_OP_GNU_addr_index:
    case DW_OP_GNU_const_index:
    case DW_OP_fbreg:
    case DW_OP_entry_value:
    case DW_OP_GNU_entry_value:
        return pushResolved(operation);
    case DW_OP_dup:
        return pushCopy(0);
    case DW_OP_over:
        return pushCopy(1);
    case DW_OP_pick:
        return pushCopy(operation.number);
    case DW_OP_nop:
        return true;
    default:
        return change(operation);
    }
}

bool Machine::load(std::uint64_t size)
{
    std::uint64_t loaded = 0;
    if (size > sizeof loaded || !readMemory(_stack[_depth - 1], &loaded, size))
        return false;
    _stack[_depth - 1] = loaded;
    return true;
}

// The operations that take one value.
bool Machine::change(const Dwarf_Op& operation)
{
    if (_depth == 0)
        return false;
    std::uint64_t& value = _stack[_depth - 1];
    switch (operation.atom) {
    case DW_OP_plus_uconst:
        value += operation.number;
        return true;
    case DW_OP_neg:
        value = 0 - value;
        return true;
    case DW_OP_not:
        value = ~value;
        return true;
    case DW_OP_drop:
        --_depth;
        return true;
    case DW_OP_deref:
        return load(sizeof value);
    case DW_OP_deref_size:
        return load(operation.number);
    default:
        return combine(operation.atom);
    }
}

// The operations that take two values.
bool Machine::combine(unsigned operation)
{
    if (_depth < 2)
        return false;
    const std::uint64_t right = _stack[_depth - 1];
    std::uint64_t& left = _stack[_depth - 2];
    const auto signedLeft = static_cast<std::int64_t>(left);
    const auto signedRight = static_cast<std::int64_t>(right);
    switch (operation) {
    case DW_OP_swap:
        std::swap(left, _stack[_depth - 1]);
        return true;
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
    case DW_OP_xor:
        left ^= right;
        break;
    case DW_OP_shl:
        left = right < 64 ? left << right : 0;
        break;
    case DW_OP_shr:
        left = right < 64 ? left >> right : 0;
        break;
    case DW_OP_shra:
        left = static_cast<std::uint64_t>(signedLeft >> (right < 64 ? right : 63));
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

// The value that an operation names as a whole, with nothing to compute.
std::optional<Operand> wholeValue(const Dwarf_Op& operation, const Frame& frame, Machine& machine)
{
    if (operation.atom >= DW_OP_reg0 && operation.atom <= DW_OP_reg31)
        return registerValue(frame, operation.atom - DW_OP_reg0);
    if (operation.atom == DW_OP_regx)
        return registerValue(frame, operation.number);
    if (operation.atom == DW_OP_implicit_value && !machine.pushResolved(operation))
        return {};
    return valueOf(machine.top());
}

bool isWholeValue(unsigned operation)
{
    return (operation >= DW_OP_reg0 && operation <= DW_OP_reg31) || operation == DW_OP_regx ||
           operation == DW_OP_implicit_value || operation == DW_OP_stack_value;
}

} // namespace

std::optional<Operand> evaluate(std::span<const Dwarf_Op> operations, const Frame& frame,
                                Surroundings* surroundings)
{
    Machine machine(frame, surroundings);
    for (const Dwarf_Op& operation : operations) {
        if (isWholeValue(operation.atom)) { // behind it only other pieces of the value can follow
            const bool isLast = &operation == &operations.back();
            return isLast ? wholeValue(operation, frame, machine) : std::nullopt;
        }
        if (!machine.run(operation))
            return {};
    }
    const std::optional<std::uint64_t> address = machine.top();
    return address ? std::optional(Operand{Operand::Kind::Address, *address}) : std::nullopt;
}

} // namespace orvi::debug
