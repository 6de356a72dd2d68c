#include "CodeScopes.h"

#include <dwarf.h>

namespace orvi::debug {
namespace {

Dwarf_Die* findUnit(Dwfl_Module* module, std::uintptr_t address, Dwarf_Addr& bias)
{
    // libdwfl gives the gap behind a unit to that unit.
    Dwarf_Die* unit = dwfl_module_addrdie(module, address, &bias);
    if (unit != nullptr && dwarf_haspc(unit, address - bias) > 0)
        return unit;
    // clang writes no table of addresses (.debug_aranges): ask each unit.
    unit = nullptr;
    do
        unit = dwfl_module_nextcu(module, unit, &bias);
    while (unit != nullptr && dwarf_haspc(unit, address - bias) <= 0);
    return unit;
}

// A skeleton has only the lines; its functions are in a file of their own, when that is at hand.
Dwarf_Die unitWithFunctions(Dwarf_Die* unit)
{
    Dwarf_Die split;
    std::uint8_t type = 0;
    if (dwarf_cu_info(unit->cu, nullptr, &type, nullptr, &split, nullptr, nullptr, nullptr) == 0 &&
        type == DW_UT_skeleton && split.addr != nullptr)
        return split;
    return *unit;
}

enum class Search { Definitions, Everything };

bool findFunction(Dwarf_Die scope, Dwarf_Addr address, Search search, Dwarf_Die& function, int depth = 0)
{
    constexpr int maxNesting = 64;
    Dwarf_Die child;
    return depth < maxNesting && findChild(scope, child, [&](Dwarf_Die& entry) {
               const int tag = dwarf_tag(&entry);
               if (tag == DW_TAG_subprogram && dwarf_haspc(&entry, address) > 0) {
                   function = entry;
                   return true;
               }
               const bool leadsOn = tag == DW_TAG_namespace || tag == DW_TAG_module ||
                                    (search == Search::Everything &&
                                     (tag == DW_TAG_subprogram || tag == DW_TAG_lexical_block ||
                                      tag == DW_TAG_class_type || tag == DW_TAG_structure_type));
               return leadsOn && findFunction(entry, address, search, function, depth + 1);
           });
}

// Definitions stand in the unit itself or in namespaces, whatever class they belong to, and are found in a tenth
// of the time. Only those of lambdas and other local classes may stand inside their class.
bool findOuterFunction(Dwarf_Die& unit, Dwarf_Addr address, Dwarf_Die& function)
{
    return findFunction(unit, address, Search::Definitions, function) ||
           findFunction(unit, address, Search::Everything, function);
}

} // namespace

Dwfl_Module* findModule(Dwfl* dwfl, std::uintptr_t address)
{
    Dwfl_Module* module = dwfl_addrmodule(dwfl, address);
    Dwarf_Addr end = 0;
    if (module == nullptr ||
        dwfl_module_info(module, nullptr, nullptr, &end, nullptr, nullptr, nullptr, nullptr) == nullptr)
        return nullptr;
    return address < end ? module : nullptr; // libdwfl gives all that is behind the last module to it
}

CodeScopes::CodeScopes(Dwfl* dwfl, std::uintptr_t place)
    : address(place)
    , module(findModule(dwfl, place))
{
    if (module != nullptr)
        unit = findUnit(module, address, bias);
    if (unit == nullptr)
        return;
    functionUnit = unitWithFunctions(unit);
    if (!findOuterFunction(functionUnit, fileAddress(), chain[0]))
        return;

    const auto holdsAddress = [this](Dwarf_Die& entry) {
        const int tag = dwarf_tag(&entry);
        return (tag == DW_TAG_lexical_block || tag == DW_TAG_inlined_subroutine) &&
               dwarf_haspc(&entry, fileAddress()) > 0;
    };
    do
        ++depth;
    while (depth < maxDepth && findChild(chain[depth - 1], chain[depth], holdsAddress));
}

std::size_t CodeScopes::innermostFunction(std::size_t end)
{
    std::size_t place = end - 1;
    while (place > 0 && dwarf_tag(&chain[place]) != DW_TAG_inlined_subroutine)
        --place;
    return place;
}

} // namespace orvi::debug
