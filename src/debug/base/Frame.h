#pragma once
#include <cstddef>
#include <cstdint>
#include <optional>

namespace orvi::debug {

/** The registers of one frame on a stack, as far as they are known, by their DWARF numbers. */
class Frame {
public:
    enum Register : unsigned {
        Rax,
        Rdx,
        Rcx,
        Rbx,
        Rsi,
        Rdi,
        Rbp,
        Rsp,
        R8,
        R9,
        R10,
        R11,
        R12,
        R13,
        R14,
        R15,
        Rip
    };
    static constexpr unsigned registerCount = Rip + 1;

    bool has(unsigned number) const { return number < registerCount && (_known >> number & 1) != 0; }
    /** 0 when it is not known. */
    std::uint64_t get(unsigned number) const { return has(number) ? _registers[number] : 0; }
    void set(unsigned number, std::uint64_t value)
    {
        _registers[number] = value;
        _known |= 1u << number;
    }

    /** Whether the frame stands at an instruction still to be done, not behind a call. */
    bool interrupted = false;

    /** The canonical frame address; empty when it is not known, or not yet. */
    std::optional<std::uint64_t> frameAddress;

    /** An address inside the instruction that the frame stands at or that called out of it. */
    std::uintptr_t codeAddress() const { return get(Rip) - (interrupted ? 0 : 1); }

private:
    std::uint64_t _registers[registerCount] = {};
    std::uint32_t _known = 0;
};

} // namespace orvi::debug
