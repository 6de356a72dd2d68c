#pragma once
#include "Minidump.h"
#include <sys/user.h>
#include <ucontext.h>

namespace orvi::debug {

void toDumpContext(const ucontext_t& registers, minidump::Context& context);
void toDumpContext(const user_regs_struct& general, const user_fpregs_struct& floatingPoint,
                   minidump::Context& context);

} // namespace orvi::debug
