#pragma once
#include "Frame.h"
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

/** Computes a DWARF expression of unwind information. `frameAddress` is the canonical frame address, where it
    is known already. Empty for an operation, a register or memory that is not there. */
std::optional<Operand> evaluate(std::span<const Dwarf_Op> operations, const Frame& frame,
                                std::optional<std::uint64_t> frameAddress);

} // namespace orvi::debug
