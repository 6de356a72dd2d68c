#include "SourcePlace.h"

#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dwarf.h>
#include <span>
#include <string_view>

namespace orvi::debug {
namespace {

void copyText(std::string_view text, std::span<char> target)
{
    target[text.copy(target.data(), target.size() - 1)] = '\0';
}

// A symbol may carry a version ("qsort@@GLIBC_2.2.5"), which the demangler does not know.
void copyReadable(const char* name, std::span<char> target)
{
    char* plain = strndup(name, std::strcspn(name, "@"));
    if (plain == nullptr)
        return;
    // The demangler would read a C name as that of a type.
    char* demangled = std::string_view(plain).starts_with("_Z")
                          ? abi::__cxa_demangle(plain, nullptr, nullptr, nullptr)
                          : nullptr;
    copyText(demangled != nullptr ? demangled : plain, target);
    std::free(demangled);
    std::free(plain);
}

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

// Definitions stand in the unit itself or in namespaces, whatever class they belong to.
bool findOuterFunction(Dwarf_Die scope, Dwarf_Addr address, Dwarf_Die& function, int depth = 0)
{
    constexpr int maxDepth = 64;
    Dwarf_Die child;
    return depth < maxDepth && findChild(scope, child, [&](Dwarf_Die& entry) {
               switch (dwarf_tag(&entry)) {
               case DW_TAG_subprogram:
                   if (dwarf_haspc(&entry, address) <= 0)
                       return false;
                   function = entry;
                   return true;
               case DW_TAG_namespace:
               case DW_TAG_module:
                   return findOuterFunction(entry, address, function, depth + 1);
               default:
                   return false;
               }
           });
}

Dwarf_Die innermostInlined(Dwarf_Die function, Dwarf_Addr address)
{
    Dwarf_Die innermost = function;
    Dwarf_Die child;
    const auto holdsAddress = [&](Dwarf_Die& entry) {
        const int tag = dwarf_tag(&entry);
        return (tag == DW_TAG_lexical_block || tag == DW_TAG_inlined_subroutine) &&
               dwarf_haspc(&entry, address) > 0;
    };
    for (Dwarf_Die scope = function; findChild(scope, child, holdsAddress); scope = child)
        if (dwarf_tag(&child) == DW_TAG_inlined_subroutine)
            innermost = child;
    return innermost;
}

const char* linkageName(Dwarf_Die& function)
{
    Dwarf_Attribute attribute;
    if (dwarf_attr_integrate(&function, DW_AT_linkage_name, &attribute) == nullptr &&
        dwarf_attr_integrate(&function, DW_AT_MIPS_linkage_name, &attribute) == nullptr)
        return nullptr;
    return dwarf_formstring(&attribute);
}

const char* symbolName(Dwfl_Module* module, std::uintptr_t address)
{
    GElf_Off offset = 0;
    GElf_Sym symbol;
    return dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);
}

// The symbol table has the full name of functions that are local to their file, where g++ records only the
// last part; it knows nothing of inlined ones.
const char* functionName(Dwfl_Module* module, std::uintptr_t address, Dwarf_Die& unit, Dwarf_Addr bias)
{
    Dwarf_Die outer;
    if (!findOuterFunction(unitWithFunctions(&unit), address - bias, outer))
        return symbolName(module, address);
    Dwarf_Die function = innermostInlined(outer, address - bias);
    if (const char* name = linkageName(function))
        return name;
    const bool isInlined = dwarf_tag(&function) == DW_TAG_inlined_subroutine;
    const char* symbol = isInlined ? nullptr : symbolName(module, address);
    return symbol != nullptr ? symbol : dwarf_diename(&function);
}

// libdw puts the directory of the build before a name that is relative. Where that directory is relative
// itself, the compiler was told to shorten paths, and the name is complete.
std::string_view withoutRelativeDirectory(std::string_view file, Dwarf_Die& unit)
{
    Dwarf_Attribute attribute;
    const char* name = dwarf_formstring(dwarf_attr(&unit, DW_AT_comp_dir, &attribute));
    const std::string_view directory = name != nullptr ? name : "";
    if (directory.empty() || directory.front() == '/' || !file.starts_with(directory))
        return file;
    const std::string_view rest = file.substr(directory.size());
    return rest.starts_with('/') ? rest.substr(1) : file;
}

void findLine(Dwarf_Die& unit, Dwarf_Addr address, SourcePlace& place)
{
    Dwarf_Line* line = dwarf_getsrc_die(&unit, address);
    const char* file = line == nullptr ? nullptr : dwarf_linesrc(line, nullptr, nullptr);
    if (file == nullptr)
        return;
    copyText(withoutRelativeDirectory(file, unit), place.file);
    dwarf_lineno(line, &place.line);
}

} // namespace

void findSourcePlace(Dwfl* dwfl, std::uintptr_t address, SourcePlace& place)
{
    place.function[0] = place.file[0] = '\0';
    place.line = 0;
    Dwfl_Module* module = dwfl_addrmodule(dwfl, address);
    if (module == nullptr)
        return;
    Dwarf_Addr bias = 0;
    Dwarf_Die* unit = findUnit(module, address, bias);
    if (unit != nullptr)
        findLine(*unit, address - bias, place);
    const char* name =
        unit != nullptr ? functionName(module, address, *unit, bias) : symbolName(module, address);
    if (name != nullptr)
        copyReadable(name, place.function);
}

} // namespace orvi::debug
