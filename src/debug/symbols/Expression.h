#pragma once
#include "base/Frame.h"
#include <elfutils/libdw.h>
#include <optional>
#include <span>

namespace orvi::debug {

struct Operand {
    enum class Kind {
        Address, // of the value
        Value
    };
    Kind kind;
    std::uint64_t number;
};

/** Knows what the expressions of variables ask for beyond registers and memory. */
class Surroundings {
public:
    virtual ~Surroundings() = default;
    /** The number that an operation stands for. Empty: not known, or not one of these. */
    virtual std::optional<std::uint64_t> resolve(const Dwarf_Op& operation) = 0;
};

/** Computes a DWARF expression. Empty for an operation, a register or memory that is not there, and for a value
    in several pieces. */
std::optional<Operand> evaluate(std::span<const Dwarf_Op> operations, const Frame& frame,
                                Surroundings* surroundings = nullptr);

} // namespace orvi::debug
