#pragma once
#include <cstddef>
#include <cstdint>
#include <elfutils/libdwfl.h>
#include <ucontext.h>

namespace orvi::debug {

/** Follows the stack from `start`, whose frames must stay alive, and stores the return addresses of the
    frames that begin above `bottom`; gives their number, at most `capacity`.

    A frame that a signal interrupted has no return address; it is given by the address of its next
    instruction plus 1, so that looking one byte before every address of the list is right. */
std::size_t walkStack(Dwfl* dwfl, const ucontext_t& start, std::uintptr_t bottom, std::uintptr_t* addresses,
                      std::size_t capacity);

} // namespace orvi::debug
