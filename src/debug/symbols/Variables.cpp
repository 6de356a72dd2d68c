#include "Variables.h"

#include <cstring>
#include <dwarf.h>
#include <string_view>

namespace orvi::debug {
namespace {

std::optional<std::uint64_t> numberIn(const Dwarf_Block& block)
{
    std::uint64_t number = 0;
    if (block.length > sizeof number)
        return {};
    std::memcpy(&number, block.data, block.length);
    return number;
}

std::optional<std::uint64_t> constantIn(Dwarf_Attribute& attribute)
{
    Dwarf_Word number = 0;
    if (dwarf_formudata(&attribute, &number) == 0)
        return number;
    Dwarf_Block block;
    return dwarf_formblock(&attribute, &block) == 0 ? numberIn(block) : std::nullopt;
}

// The register that the expression of an attribute names and nothing else.
std::optional<unsigned> onlyRegister(Dwarf_Attribute& attribute)
{
    Dwarf_Op* operations = nullptr;
    std::size_t count = 0;
    if (dwarf_getlocation(&attribute, &operations, &count) != 0 || count != 1 ||
        operations->atom < DW_OP_reg0 || operations->atom > DW_OP_reg31)
        return {};
    return operations->atom - DW_OP_reg0;
}

Dwarf_Attribute* eitherAttribute(Dwarf_Die& entry, unsigned name, unsigned oldName, Dwarf_Attribute& place)
{
    Dwarf_Attribute* found = dwarf_attr(&entry, name, &place);
    return found != nullptr ? found : dwarf_attr(&entry, oldName, &place);
}

bool findCallSite(Dwarf_Die& scope, Dwarf_Addr returnAddress, Dwarf_Die& site, int depth = 0)
{
    Dwarf_Die child;
    return findChild(scope, child, [&](Dwarf_Die& entry) {
        Dwarf_Attribute attribute;
        Dwarf_Addr address = 0;
        switch (dwarf_tag(&entry)) {
        case DW_TAG_call_site:
        case DW_TAG_GNU_call_site:
            site = entry;
            return dwarf_formaddr(eitherAttribute(entry, DW_AT_call_return_pc, DW_AT_low_pc, attribute),
                                  &address) == 0 &&
                   address == returnAddress;
        case DW_TAG_lexical_block:
        case DW_TAG_inlined_subroutine:
            return depth < static_cast<int>(CodeScopes::maxDepth) &&
                   findCallSite(entry, returnAddress, site, depth + 1);
        default:
            return false;
        }
    });
}

std::string_view uniqueName(Dwarf_Die& function)
{
    Dwarf_Attribute attribute;
    const char* name = dwarf_formstring(dwarf_attr_integrate(&function, DW_AT_linkage_name, &attribute));
    if (name == nullptr)
        name = dwarf_diename(&function);
    return name != nullptr ? name : "";
}

// A function that ends in a jump to another one leaves that with a caller which never called it.
bool leadsTo(Dwarf_Die& callSite, Dwarf_Die& function)
{
    Dwarf_Attribute attribute;
    Dwarf_Die target;
    return dwarf_formref_die(eitherAttribute(callSite, DW_AT_call_origin, DW_AT_abstract_origin, attribute),
                             &target) != nullptr &&
           uniqueName(target) == uniqueName(function);
}

// What the expression is that the caller computed for a register before the call.
bool findPassedValue(Dwarf_Die& callSite, unsigned number, Dwarf_Attribute& value)
{
    Dwarf_Die parameter;
    return findChild(callSite, parameter, [&](Dwarf_Die& entry) {
        Dwarf_Attribute location;
        return dwarf_attr(&entry, DW_AT_location, &location) != nullptr && onlyRegister(location) == number &&
               eitherAttribute(entry, DW_AT_call_value, DW_AT_GNU_call_site_value, value) != nullptr;
    });
}

} // namespace

std::optional<Operand> Variables::find(Dwarf_Die& variable)
{
    Dwarf_Attribute attribute;
    if (dwarf_attr_integrate(&variable, DW_AT_location, &attribute) != nullptr)
        return evaluateAttribute(attribute);
    if (dwarf_attr_integrate(&variable, DW_AT_const_value, &attribute) == nullptr)
        return {};
    const auto constant = constantIn(attribute);
    return constant ? std::optional(Operand{Operand::Kind::Value, *constant}) : std::nullopt;
}

std::optional<Operand> Variables::evaluateAttribute(Dwarf_Attribute& attribute)
{
    Dwarf_Op* operations = nullptr;
    std::size_t count = 0;
    if (dwarf_getlocation_addr(&attribute, _scopes.fileAddress(), &operations, &count, 1) != 1)
        return {};
    _attribute = &attribute;
    return evaluate({operations, count}, _frame, this);
}

std::optional<std::uint64_t> Variables::resolve(const Dwarf_Op& operation)
{
    Dwarf_Attribute attribute;
    Dwarf_Addr address = 0;
    switch (operation.atom) {
    case DW_OP_addr:
        return operation.number + _scopes.bias;
    case DW_OP_addrx:
    case DW_OP_GNU_addr_index:
    case DW_OP_constx:
    case DW_OP_GNU_const_index: {
        if (dwarf_getlocation_attr(_attribute, &operation, &attribute) != 0 ||
            dwarf_formaddr(&attribute, &address) != 0)
            return {};
        const bool isAddress = operation.atom == DW_OP_addrx || operation.atom == DW_OP_GNU_addr_index;
        return address + (isAddress ? _scopes.bias : 0);
    }
    case DW_OP_fbreg: {
        const auto base = frameBase();
        return base ? std::optional(*base + operation.number) : std::nullopt;
    }
    case DW_OP_implicit_value:
        return implicitValue(operation);
    case DW_OP_entry_value:
    case DW_OP_GNU_entry_value:
        return entryValue(operation);
    default:
        return {};
    }
}

std::optional<std::uint64_t> Variables::frameBase()
{
    Dwarf_Attribute attribute;
    Dwarf_Op* operations = nullptr;
    std::size_t count = 0;
    // An inlined function shares the frame of the one around it.
    if (dwarf_attr_integrate(&_scopes.chain[0], DW_AT_frame_base, &attribute) == nullptr ||
        dwarf_getlocation_addr(&attribute, _scopes.fileAddress(), &operations, &count, 1) != 1)
        return {};
    const auto base = evaluate({operations, count}, _frame);
    return base ? std::optional(base->number) : std::nullopt;
}

std::optional<std::uint64_t> Variables::implicitValue(const Dwarf_Op& operation)
{
    Dwarf_Block block;
    return dwarf_getlocation_implicit_value(_attribute, &operation, &block) == 0 ? numberIn(block)
                                                                                 : std::nullopt;
}

// What was in a register when the function was called: the caller's debug information may tell what it passed.
std::optional<std::uint64_t> Variables::entryValue(const Dwarf_Op& operation)
{
    Dwarf_Attribute attribute;
    if (_caller == nullptr || _caller->interrupted ||
        dwarf_getlocation_attr(_attribute, &operation, &attribute) != 0)
        return {};
    const auto number = onlyRegister(attribute);
    CodeScopes callerScopes(_dwfl, _caller->codeAddress());
    if (!number || callerScopes.depth == 0)
        return {};
    Dwarf_Die site;
    if (!findCallSite(callerScopes.chain[0], callerScopes.fileAddress() + 1, site) ||
        !leadsTo(site, _scopes.chain[0]) || !findPassedValue(site, *number, attribute))
        return {};
    Variables inCaller(_dwfl, *_caller, nullptr, callerScopes);
    const auto value = inCaller.evaluateAttribute(attribute);
    return value ? std::optional(value->number) : std::nullopt;
}

} // namespace orvi::debug
