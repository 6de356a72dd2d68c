#pragma once
#include "DebugApi.h"
#include <cstddef>
#include <elfutils/libdwfl.h>

namespace orvi::debug {

/** Shows the visitor at most `maxFrames` frames, beginning with that of `registers`, each with its variables.
    One thread at a time. */
void visitStack(Dwfl* dwfl, const ucontext_t& registers, std::size_t maxFrames,
                const OrviDebugStackVisitor& visitor);

} // namespace orvi::debug
