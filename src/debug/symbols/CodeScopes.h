#pragma once
#include <cstddef>
#include <cstdint>
#include <elfutils/libdwfl.h>

namespace orvi::debug {

/** Null: none is loaded there. */
Dwfl_Module* findModule(Dwfl* dwfl, std::uintptr_t address);

/** The function, the blocks and the inlined calls around an instruction, as the debug information has them. */
struct CodeScopes {
    /** Of the instruction that holds the byte at `address`. */
    CodeScopes(Dwfl* dwfl, std::uintptr_t address);

    /** The address in the module's file. */
    Dwarf_Addr fileAddress() const { return address - bias; }

    /** The place in the chain of the innermost function, inlined or not, among its first `end` scopes. */
    std::size_t innermostFunction(std::size_t end);

    std::uintptr_t address;
    Dwfl_Module* module; // null: none is loaded there
    Dwarf_Addr bias = 0;
    Dwarf_Die* unit = nullptr;   // has the lines; null without debug information
    Dwarf_Die functionUnit = {}; // has the functions

    static constexpr std::size_t maxDepth = 64;
    Dwarf_Die chain[maxDepth]; // the function first, then what holds the address in it
    std::size_t depth = 0;     // 0: in no known function
};

/** Finds the first child that `matches`. */
template <class Predicate>
bool findChild(Dwarf_Die& parent, Dwarf_Die& child, Predicate matches)
{
    if (dwarf_child(&parent, &child) != 0)
        return false;
    do
        if (matches(child))
            return true;
    while (dwarf_siblingof(&child, &child) == 0);
    return false;
}

template <class Function>
void forEachChild(Dwarf_Die& parent, Function function)
{
    Dwarf_Die child;
    findChild(parent, child, [&](Dwarf_Die& entry) {
        function(entry);
        return false;
    });
}

} // namespace orvi::debug
