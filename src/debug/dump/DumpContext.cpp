#include "DumpContext.h"

#include "base/Memory.h"
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvi::debug {
namespace {

using minidump::Context;

void finish(Context& context)
{
    std::uint32_t mxcsr;
    constexpr std::size_t mxcsrPlace = offsetof(user_fpregs_struct, mxcsr);
    std::memcpy(&mxcsr, context.floatingPoint + mxcsrPlace, sizeof mxcsr);
    context.mxcsr = mxcsr;
    context.flags = Context::allRegisters;
}

} // namespace

void toDumpContext(const ucontext_t& registers, Context& context)
{
    const auto get = [&](int number) {
        return static_cast<std::uint64_t>(registers.uc_mcontext.gregs[number]);
    };
    context = {};
    context.rax = get(REG_RAX);
    context.rcx = get(REG_RCX);
    context.rdx = get(REG_RDX);
    context.rbx = get(REG_RBX);
    context.rsp = get(REG_RSP);
    context.rbp = get(REG_RBP);
    context.rsi = get(REG_RSI);
    context.rdi = get(REG_RDI);
    context.r8 = get(REG_R8);
    context.r9 = get(REG_R9);
    context.r10 = get(REG_R10);
    context.r11 = get(REG_R11);
    context.r12 = get(REG_R12);
    context.r13 = get(REG_R13);
    context.r14 = get(REG_R14);
    context.r15 = get(REG_R15);
    context.rip = get(REG_RIP);
    context.eflags = static_cast<std::uint32_t>(get(REG_EFL));
    const std::uint64_t segments = get(REG_CSGSFS); // 16 bits each
    context.cs = static_cast<std::uint16_t>(segments);
    context.gs = static_cast<std::uint16_t>(segments >> 16);
    context.fs = static_cast<std::uint16_t>(segments >> 32);
    context.ss = static_cast<std::uint16_t>(segments >> 48);
    // They lie outside of the structure, where the kernel put them: a copy of it may have outlived them.
    readMemoryNow(reinterpret_cast<std::uintptr_t>(registers.uc_mcontext.fpregs), context.floatingPoint,
                  sizeof context.floatingPoint);
    finish(context);
}

void toDumpContext(const user_regs_struct& general, const user_fpregs_struct& floatingPoint, Context& context)
{
    context = {};
    context.rax = general.rax;
    context.rcx = general.rcx;
    context.rdx = general.rdx;
    context.rbx = general.rbx;
    context.rsp = general.rsp;
    context.rbp = general.rbp;
    context.rsi = general.rsi;
    context.rdi = general.rdi;
    context.r8 = general.r8;
    context.r9 = general.r9;
    context.r10 = general.r10;
    context.r11 = general.r11;
    context.r12 = general.r12;
    context.r13 = general.r13;
    context.r14 = general.r14;
    context.r15 = general.r15;
    context.rip = general.rip;
    context.eflags = static_cast<std::uint32_t>(general.eflags);
    context.cs = static_cast<std::uint16_t>(general.cs);
    context.ds = static_cast<std::uint16_t>(general.ds);
    context.es = static_cast<std::uint16_t>(general.es);
    context.fs = static_cast<std::uint16_t>(general.fs);
    context.gs = static_cast<std::uint16_t>(general.gs);
    context.ss = static_cast<std::uint16_t>(general.ss);
    static_assert(sizeof floatingPoint == sizeof context.floatingPoint);
    std::memcpy(context.floatingPoint, &floatingPoint, sizeof floatingPoint);
    finish(context);
}

} // namespace orvi::debug
