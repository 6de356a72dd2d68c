#pragma once
#include "base/Frame.h"
#include <cstddef>
#include <cstdint>
#include <elfutils/libdwfl.h>
#include <ucontext.h>

namespace orvi::debug {

/** The frames of a stack one after the other. However damaged it is, there is an end, though maybe a far one. */
class StackWalk {
public:
    /** Begins at the frame of `start`, which a signal or a call of getcontext interrupted. */
    StackWalk(Dwfl* dwfl, const ucontext_t& start);

    const Frame& frame() const { return _frame; }
    /** Null at the outermost frame. */
    const Frame* caller() const { return _hasCaller ? &_caller : nullptr; }
    /** False at the outermost frame. */
    bool moveToCaller();

private:
    void findCaller();

    Dwfl* _dwfl;
    Frame _frame;
    Frame _caller;
    bool _hasCaller = false;
    int _stackChanges =
        8; // a signal handler may have a stack of its own; a damaged one must not lead in circles
};

/** Follows the stack from `start`, whose frames must stay alive, and stores the return addresses of the
    frames that begin above `bottom`; gives their number, at most `capacity`.

    A frame that a signal interrupted has no return address; it is given by the address of its next
    instruction plus 1, so that looking one byte before every address of the list is right. */
std::size_t walkStack(Dwfl* dwfl, const ucontext_t& start, std::uintptr_t bottom, std::uintptr_t* addresses,
                      std::size_t capacity);

} // namespace orvi::debug
